#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

namespace tesk {

/// A persistent reference to a file (a document's song) that keeps finding the file after it
/// was renamed in its folder, moved to another folder of the same file system, moved beside
/// the document, or moved together with the document.
///
/// It remembers the path as made, the file's device and inode, its name, size and modification
/// time, and its path relative to the document's folder. Nothing found is cached: every call
/// to resolvedPath() looks again, so a moved file is found anew and a deleted one is not.
///
/// Plain value; any thread (it only reads the file system). Every lookup is bounded, so a
/// reference into a huge or slow tree costs at most a few thousand directory entries.
class TeskFileReference {
public:
    /// A reference to the file at `path`; nullopt when it names no regular file.
    /// With a `documentPath` (the document's own file, which need not exist yet), a relative
    /// `path` is taken from the document's folder, and the path relative to that folder is
    /// remembered so the song is found again when both move together.
    static std::optional<TeskFileReference> fromPath(const QString& path,
                                                     const QString& documentPath = {});

    /// The archived form for the document file. Opaque: only fromBytes() reads it.
    QByteArray toBytes() const;
    /// Reads an archived reference; nullopt for anything toBytes() did not write (garbage,
    /// truncated or altered bytes, an unknown version).
    static std::optional<TeskFileReference> fromBytes(const QByteArray& bytes);

    /// Where the file is now: a canonical path (symbolic links resolved), or empty when the
    /// file cannot be found. `documentPath` is the document's current file, when there is one.
    QString resolvedPath(const QString& documentPath = {}) const;
    /// Whether a new file at `path` would be found as this one: it lies at one of the places
    /// resolvedPath() looks by name (a new file is never the remembered one by what it is).
    bool wouldFindAt(const QString& path, const QString& documentPath = {}) const;

    /// Equal when both resolve, to the same path.
    bool isEqual(const TeskFileReference& other) const;
    bool operator==(const TeskFileReference& other) const { return isEqual(other); }
    /// Hash of the resolved path, consistent with isEqual().
    std::size_t hash() const;

    /// What was remembered when the reference was made.
    const QString& absolutePath() const { return mAbsolutePath; }
    const QString& relativePath() const { return mRelativePath; }
    const QString& fileName() const { return mFileName; }
    std::uint64_t device() const { return mDevice; }
    std::uint64_t inode() const { return mInode; }
    std::int64_t size() const { return mSize; }
    /// Nanoseconds since the epoch.
    std::int64_t modificationTime() const { return mModificationTime; }

private:
    TeskFileReference() = default;

    QString mAbsolutePath;
    QString mRelativePath;
    QString mFileName;
    std::uint64_t mDevice = 0;
    std::uint64_t mInode = 0;
    std::int64_t mSize = 0;
    std::int64_t mModificationTime = 0;
};

} // namespace tesk
