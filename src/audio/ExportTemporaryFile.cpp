#include "audio/ExportTemporaryFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace tesk {
namespace {

std::filesystem::path fileSystemPath(const QString& path) {
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

/// As much of `baseName` as fits before the temporary file's own bytes and `suffix`, within
/// the 255 bytes a name may have.
QString shortenedBaseName(QString baseName, const QString& suffix) {
    constexpr qsizetype kNameMax = 255;
    constexpr qsizetype kOwnBytes = 13; // ".", ".tmp-", six digits and the suffix's "."
    const qsizetype room = kNameMax - kOwnBytes - QFile::encodeName(suffix).size();
    while (!baseName.isEmpty() && QFile::encodeName(baseName).size() > room)
        baseName.chop(baseName.back().isLowSurrogate() ? 2 : 1);
    return baseName;
}

} // namespace

QString ExportTemporaryFile::finalPath(const QString& destination) {
    // Through a link to the file it names, so that the link stays a link.
    if (const QString target = QFileInfo(destination).canonicalFilePath(); !target.isEmpty())
        return target == destination ? destination : target;
    // Links to a file not made yet: followed one by one (as many as the system would).
    QString path = destination;
    for (int links = 0; links < 40 && QFileInfo(path).isSymLink(); ++links)
        path = QFileInfo(path).symLinkTarget();
    return path;
}

std::unique_ptr<ExportTemporaryFile> ExportTemporaryFile::create(const QString& destination,
                                                                 QString* error) {
    const QString target = finalPath(destination);
    const QFileInfo info(target);
    const QString stem = info.dir().filePath(
        QLatin1Char('.') + shortenedBaseName(info.completeBaseName(), info.suffix()) +
        QStringLiteral(".tmp-"));
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Six base-36 digits.
        const QString tag = QString::number(QRandomGenerator::global()->bounded(2176782336u), 36)
                                .rightJustified(6, QLatin1Char('0'));
        const QString path = stem + tag + QLatin1Char('.') + info.suffix();
        // O_EXCL: never reuse a file someone else has; 0666 lets the umask decide, as for any
        // file the user makes.
        const int fd = ::open(QFile::encodeName(path).constData(),
                              O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            return std::unique_ptr<ExportTemporaryFile>(
                new ExportTemporaryFile(path, destination, target));
        }
        if (errno != EEXIST) {
            *error = QString::fromLocal8Bit(std::strerror(errno));
            return nullptr;
        }
    }
    *error = QStringLiteral("no free temporary name in %1").arg(info.dir().path());
    return nullptr;
}

ExportTemporaryFile::ExportTemporaryFile(QString path, QString destination, QString target)
    : mPath(std::move(path))
    , mDestination(std::move(destination))
    , mTarget(std::move(target)) {}

ExportTemporaryFile::~ExportTemporaryFile() {
    if (!mCommitted) {
        std::error_code ignored;
        std::filesystem::remove(fileSystemPath(mPath), ignored);
    }
}

bool ExportTemporaryFile::commit(QString* error) {
    std::error_code failure;
    const std::filesystem::path temporary = fileSystemPath(mPath);
    const std::filesystem::path destination = fileSystemPath(mTarget);
    const auto status = std::filesystem::status(destination, failure);
    if (!failure && std::filesystem::exists(status))
        std::filesystem::permissions(temporary, status.permissions(), failure);
    failure.clear();
    std::filesystem::rename(temporary, destination, failure);
    if (failure) {
        *error = QString::fromStdString(failure.message());
        return false;
    }
    mCommitted = true;
    return true;
}

TeskError ExportTemporaryFile::toldOfDestination(const TeskError& error) const {
    const QString temporaryName = QFileInfo(mPath).fileName();
    const QString destinationName = QFileInfo(mDestination).fileName();
    QVariantMap userInfo = error.userInfo();
    for (auto entry = userInfo.begin(); entry != userInfo.end(); ++entry) {
        if (entry.value().typeId() != QMetaType::QString)
            continue;
        QString text = entry.value().toString();
        text.replace(mPath, mDestination).replace(temporaryName, destinationName);
        entry.value() = text;
    }
    return TeskError(error.domain(), error.code(), userInfo);
}

} // namespace tesk
