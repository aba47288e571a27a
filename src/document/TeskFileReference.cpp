#include "document/TeskFileReference.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHashFunctions>
#include <QStandardPaths>
#include <QtEndian>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>

namespace tesk {

namespace {

constexpr char kMagic[4] = {'T', 'S', 'K', 'R'};
constexpr quint8 kVersion = 1;
// Paths are bounded by PATH_MAX on Linux; anything far longer is not something we wrote.
constexpr quint32 kMaxStringBytes = 64 * 1024;

// Directory entries one search may look at. A few thousand fstatat calls take a few
// milliseconds on a local disk, which keeps opening a document quick even when the song is
// gone and the folders around it are huge.
constexpr int kFolderScanBudget = 4000;
constexpr int kParentScanBudget = 4000;
constexpr int kParentScanDepth = 3;
constexpr int kMusicFolderBudget = 2000;

std::int64_t modificationTimeOf(const struct stat& info) {
    return std::int64_t(info.st_mtim.tv_sec) * 1'000'000'000 + std::int64_t(info.st_mtim.tv_nsec);
}

/// What marks the file wherever it goes on its file system. The inode alone is not enough: a
/// deleted file's inode is soon given to a new file, often of the same size (songs of one
/// length), so the size and the modification time must match too (a rename or a move keeps
/// both).
struct Identity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modificationTime = 0;

    bool matches(const struct stat& info) const {
        return S_ISREG(info.st_mode) && std::uint64_t(info.st_dev) == device &&
               std::uint64_t(info.st_ino) == inode && std::int64_t(info.st_size) == size &&
               modificationTimeOf(info) == modificationTime;
    }
};

bool statRegular(const QString& path, struct stat& info) {
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 && S_ISREG(info.st_mode);
}

/// The canonical path of `path` when it names a regular file (through links), else empty.
QString canonicalRegular(const QString& path) {
    struct stat info {};
    if (path.isEmpty() || !statRegular(path, info)) {
        return {};
    }
    return QFileInfo(path).canonicalFilePath();
}

QString join(const QString& folder, const QString& name) {
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

/// Calls `visit(name, lstat info)` for each entry of `folder` until it returns true or
/// `budget` runs out. Returns true when `visit` did.
bool forEachEntry(const QString& folder, int& budget,
                  const std::function<bool(const QString&, const struct stat&)>& visit) {
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (dir == nullptr) {
        return false;
    }
    bool found = false;
    while (!found && budget > 0) {
        const dirent* entry = ::readdir(dir);
        if (entry == nullptr) {
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        --budget;
        // Not d_ino: overlay and network file systems may report a different inode there
        // than stat does, and stat's is the one that was remembered.
        struct stat info {};
        if (::fstatat(::dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        found = visit(QFile::decodeName(entry->d_name), info);
    }
    ::closedir(dir);
    return found;
}

/// Breadth first, so the nearest folders are searched before the budget runs out. Symbolic
/// links and other file systems are not followed: a file on another device cannot be ours,
/// and links could lead the walk in circles.
QString findIdentity(const QString& root, const Identity& identity, int maxDepth, int budget,
                     const QString& skipFolder = {}) {
    std::deque<std::pair<QString, int>> folders{{root, 0}};
    QString result;
    while (!folders.empty() && budget > 0 && result.isEmpty()) {
        // Not a structured binding: clang before 16 won't let the lambda below capture one.
        const QString folder = folders.front().first;
        const int depth = folders.front().second;
        folders.pop_front();
        forEachEntry(folder, budget, [&](const QString& name, const struct stat& info) {
            const QString path = join(folder, name);
            if (identity.matches(info)) {
                result = QFileInfo(path).canonicalFilePath();
                return true;
            }
            if (S_ISDIR(info.st_mode) && depth < maxDepth &&
                std::uint64_t(info.st_dev) == identity.device && path != skipFolder) {
                folders.emplace_back(path, depth + 1);
            }
            return false;
        });
    }
    return result;
}

/// The folder holding `documentPath`, canonical when it exists so that relative paths made
/// and resolved through different links to the same folder agree.
QString documentFolder(const QString& documentPath) {
    const QFileInfo folder(QFileInfo(documentPath).absolutePath());
    const QString canonical = folder.canonicalFilePath();
    return canonical.isEmpty() ? folder.absoluteFilePath() : canonical;
}

class Writer {
public:
    void u8(quint8 value) { mBytes.append(char(value)); }
    template <typename T> void number(T value) {
        char raw[sizeof(T)];
        qToBigEndian(value, raw);
        mBytes.append(raw, sizeof(T));
    }
    void string(const QString& value) {
        const QByteArray utf8 = value.toUtf8();
        number(quint32(utf8.size()));
        mBytes.append(utf8);
    }
    QByteArray& bytes() { return mBytes; }

private:
    QByteArray mBytes;
};

/// Reads what Writer wrote; once a read runs past the end every later read fails too.
class Reader {
public:
    explicit Reader(QByteArrayView bytes)
        : mBytes(bytes) {}

    bool ok() const { return mOk; }
    bool atEnd() const { return mPosition == mBytes.size(); }

    QByteArrayView take(qsizetype count) {
        if (!mOk || count < 0 || count > mBytes.size() - mPosition) {
            mOk = false;
            return {};
        }
        const QByteArrayView part = mBytes.sliced(mPosition, count);
        mPosition += count;
        return part;
    }
    template <typename T> T number() {
        const QByteArrayView raw = take(sizeof(T));
        return mOk ? qFromBigEndian<T>(raw.data()) : T{};
    }
    QString string() {
        const auto size = number<quint32>();
        if (size > kMaxStringBytes) {
            mOk = false;
            return {};
        }
        const QByteArrayView utf8 = take(size);
        return mOk ? QString::fromUtf8(utf8) : QString();
    }

private:
    QByteArrayView mBytes;
    qsizetype mPosition = 0;
    bool mOk = true;
};

/// `path` in its real folder (links resolved, as far as the folder exists), so that two ways
/// to one place compare equal.
QString realPlace(const QString& path) {
    const QFileInfo file(path);
    const QString folder = QFileInfo(file.absolutePath()).canonicalFilePath();
    return join(folder.isEmpty() ? QDir::cleanPath(file.absolutePath()) : folder, file.fileName());
}

} // namespace

std::optional<TeskFileReference> TeskFileReference::fromPath(const QString& path,
                                                             const QString& documentPath) {
    if (path.isEmpty()) {
        return std::nullopt;
    }
    const QString absolute =
        QDir::cleanPath(documentPath.isEmpty() || QDir::isAbsolutePath(path)
                            ? QFileInfo(path).absoluteFilePath()
                            : QDir(QFileInfo(documentPath).absolutePath()).absoluteFilePath(path));
    struct stat info {};
    if (!statRegular(absolute, info)) {
        return std::nullopt;
    }
    const QString canonical = QFileInfo(absolute).canonicalFilePath();
    if (canonical.isEmpty()) {
        return std::nullopt;
    }

    TeskFileReference reference;
    reference.mAbsolutePath = absolute;
    // The target's name, not a link's: name searches look for the file itself.
    reference.mFileName = QFileInfo(canonical).fileName();
    reference.mDevice = std::uint64_t(info.st_dev);
    reference.mInode = std::uint64_t(info.st_ino);
    reference.mSize = std::int64_t(info.st_size);
    reference.mModificationTime = modificationTimeOf(info);
    if (!documentPath.isEmpty()) {
        reference.mRelativePath = QDir(documentFolder(documentPath)).relativeFilePath(canonical);
    }
    return reference;
}

QByteArray TeskFileReference::toBytes() const {
    Writer writer;
    writer.bytes().append(kMagic, sizeof kMagic);
    writer.u8(kVersion);
    writer.number(quint64(mDevice));
    writer.number(quint64(mInode));
    writer.number(qint64(mSize));
    writer.number(qint64(mModificationTime));
    writer.string(mAbsolutePath);
    writer.string(mRelativePath);
    writer.string(mFileName);
    // A checksum, so a document damaged inside the reference reads as "no song" instead of
    // sending the search after a wrong name or inode.
    writer.number(quint16(qChecksum(writer.bytes())));
    return writer.bytes();
}

std::optional<TeskFileReference> TeskFileReference::fromBytes(const QByteArray& bytes) {
    constexpr qsizetype checksumSize = sizeof(quint16);
    if (bytes.size() < qsizetype(sizeof kMagic) + 1 + checksumSize ||
        !bytes.startsWith(QByteArrayView(kMagic, sizeof kMagic))) {
        return std::nullopt;
    }
    const QByteArrayView body = QByteArrayView(bytes).first(bytes.size() - checksumSize);
    if (qFromBigEndian<quint16>(bytes.constData() + body.size()) != qChecksum(body)) {
        return std::nullopt;
    }

    Reader reader(body);
    reader.take(sizeof kMagic);
    if (reader.number<quint8>() != kVersion) {
        return std::nullopt;
    }
    TeskFileReference reference;
    reference.mDevice = reader.number<quint64>();
    reference.mInode = reader.number<quint64>();
    reference.mSize = reader.number<qint64>();
    reference.mModificationTime = reader.number<qint64>();
    reference.mAbsolutePath = reader.string();
    reference.mRelativePath = reader.string();
    reference.mFileName = reader.string();
    if (!reader.ok() || !reader.atEnd() || !QDir::isAbsolutePath(reference.mAbsolutePath) ||
        reference.mFileName.isEmpty() || reference.mFileName.contains(QLatin1Char('/')) ||
        QDir::isAbsolutePath(reference.mRelativePath)) {
        return std::nullopt;
    }
    return reference;
}

QString TeskFileReference::resolvedPath(const QString& documentPath) const {
    const Identity identity{mDevice, mInode, mSize, mModificationTime};
    const QString folder = QFileInfo(mAbsolutePath).absolutePath();

    // The remembered path: the same file, or one put in its place (editors and taggers often
    // save by writing a new file and renaming it over the old one, which changes the inode).
    if (QString found = canonicalRegular(mAbsolutePath); !found.isEmpty()) {
        return found;
    }
    // Renamed in its folder, or sorted into a folder inside it (an album's); its own entries
    // are looked at first.
    if (QString found = findIdentity(folder, identity, kParentScanDepth, kFolderScanBudget);
        !found.isEmpty()) {
        return found;
    }
    // Moved with the document (perhaps to another disk, where the inode is new).
    const QDir documentDir(documentPath.isEmpty() ? QString() : documentFolder(documentPath));
    if (!documentPath.isEmpty() && !mRelativePath.isEmpty()) {
        if (QString found = canonicalRegular(documentDir.absoluteFilePath(mRelativePath));
            !found.isEmpty()) {
            return found;
        }
    }
    // Moved to another folder near the old one, on the same file system. The file itself, found
    // by what it is, comes before any file that only has its name.
    const QString parent = QFileInfo(folder).absolutePath();
    if (parent != folder) {
        if (QString found =
                findIdentity(parent, identity, kParentScanDepth, kParentScanBudget, folder);
            !found.isEmpty()) {
            return found;
        }
    }
    // Put beside the document.
    if (!documentPath.isEmpty()) {
        if (QString found = canonicalRegular(documentDir.absoluteFilePath(mFileName));
            !found.isEmpty()) {
            return found;
        }
    }
    // Put away in the music folder, directly or in one of its folders (an artist or album).
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    if (!music.isEmpty()) {
        if (QString found = canonicalRegular(join(music, mFileName)); !found.isEmpty()) {
            return found;
        }
        int budget = kMusicFolderBudget;
        QString result;
        forEachEntry(music, budget, [&](const QString& name, const struct stat& info) {
            if (S_ISDIR(info.st_mode)) {
                result = canonicalRegular(join(join(music, name), mFileName));
            }
            return !result.isEmpty();
        });
        return result;
    }
    return {};
}

bool TeskFileReference::wouldFindAt(const QString& path, const QString& documentPath) const {
    const QString place = realPlace(path);
    QStringList places{realPlace(mAbsolutePath)};
    if (!documentPath.isEmpty()) {
        const QDir documentDir(documentFolder(documentPath));
        if (!mRelativePath.isEmpty())
            places.append(realPlace(documentDir.absoluteFilePath(mRelativePath)));
        places.append(realPlace(documentDir.absoluteFilePath(mFileName)));
    }
    if (places.contains(place))
        return true;
    // The music folder, directly or in one of its folders.
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    if (music.isEmpty() || QFileInfo(place).fileName() != mFileName)
        return false;
    const QString musicPlace = QFileInfo(realPlace(join(music, mFileName))).absolutePath();
    const QString folder = QFileInfo(place).absolutePath();
    return folder == musicPlace || QFileInfo(folder).absolutePath() == musicPlace;
}

bool TeskFileReference::isEqual(const TeskFileReference& other) const {
    const QString path = resolvedPath();
    return !path.isEmpty() && path == other.resolvedPath();
}

std::size_t TeskFileReference::hash() const {
    return std::size_t(qHash(resolvedPath()));
}

} // namespace tesk
