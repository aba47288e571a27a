#include "audio/ExportTemporaryFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
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

/// Whether `descriptor` is the file at `path` still (not one removed and made again).
bool isFileAt(int descriptor, const QByteArray& path) {
    struct stat open {};
    struct stat named {};
    return ::fstat(descriptor, &open) == 0 && ::lstat(path.constData(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

/// Whether `name` is `stem`, six base-36 digits and `suffix`: a temporary file's name.
bool isTemporaryName(const QString& name, const QString& stem, const QString& suffix) {
    if (name.size() != stem.size() + 7 + suffix.size() || !name.startsWith(stem) ||
        name.at(stem.size() + 6) != QLatin1Char('.') || !name.endsWith(suffix))
        return false;
    const QString digits = name.mid(stem.size(), 6);
    return std::all_of(digits.begin(), digits.end(), [](QChar c) {
        return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
               (c >= QLatin1Char('a') && c <= QLatin1Char('z'));
    });
}

/// Removes the temporary files for `stem` and `suffix` in `folder` that no export holds:
/// those left by a Tesk that was killed while exporting.
void removeLeftBehind(const QDir& folder, const QString& stem, const QString& suffix) {
    const QStringList names = folder.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    for (const QString& name : names) {
        if (!isTemporaryName(name, stem, suffix))
            continue;
        const QByteArray path = QFile::encodeName(folder.filePath(name));
        const int descriptor =
            ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0)
            continue;
        if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0 && isFileAt(descriptor, path))
            ::unlink(path.constData());
        ::close(descriptor);
    }
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
    const QString stemName = QLatin1Char('.') +
                             shortenedBaseName(info.completeBaseName(), info.suffix()) +
                             QStringLiteral(".tmp-");
    const QString stem = info.dir().filePath(stemName);
    removeLeftBehind(info.dir(), stemName, info.suffix());
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Six base-36 digits.
        const QString tag = QString::number(QRandomGenerator::global()->bounded(2176782336u), 36)
                                .rightJustified(6, QLatin1Char('0'));
        const QString path = stem + tag + QLatin1Char('.') + info.suffix();
        // O_EXCL: never reuse a file someone else has; 0666 lets the umask decide, as for any
        // file the user makes.
        const QByteArray name = QFile::encodeName(path);
        const int fd = ::open(name.constData(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (fd >= 0) {
            // Another export may have taken it for one left behind before it was locked. On a
            // file system without locks it stays unlocked, and nobody can take it.
            if (::flock(fd, LOCK_EX) != 0 || isFileAt(fd, name))
                return std::unique_ptr<ExportTemporaryFile>(
                    new ExportTemporaryFile(path, destination, target, fd));
            ::close(fd);
            continue;
        }
        if (errno != EEXIST) {
            *error = QString::fromLocal8Bit(std::strerror(errno));
            return nullptr;
        }
    }
    *error = QStringLiteral("no free temporary name in %1").arg(info.dir().path());
    return nullptr;
}

ExportTemporaryFile::ExportTemporaryFile(QString path, QString destination, QString target,
                                         int lock)
    : mPath(std::move(path))
    , mDestination(std::move(destination))
    , mTarget(std::move(target))
    , mLock(lock) {}

ExportTemporaryFile::~ExportTemporaryFile() {
    if (!mCommitted) {
        std::error_code ignored;
        std::filesystem::remove(fileSystemPath(mPath), ignored);
    }
    ::close(mLock);
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
