#pragma once

#include "diagnostics/TeskError.h"

#include <QString>
#include <memory>

namespace tesk {

/// The file an export is written into before it takes its destination's place: hidden beside
/// the destination (".NAME.tmp-XXXXXX.EXT", with the destination's extension, which chooses the
/// export's format, and NAME shortened to fit), so that whatever is at the destination
/// survives an export that fails, is cancelled or is cut short by the program closing. A
/// destination that is a link is written through it: the file it names is replaced, and the
/// link stays. Removed unless committed. It is locked while it exists, so that one left behind
/// by a Tesk that was killed (which can remove nothing) is told from one being written, and
/// removed by the next export to the same destination.
/// One thread at a time (the main thread or the export thread).
class ExportTemporaryFile {
public:
    /// Creates the empty file, never reusing one that is there, after removing those of the
    /// destination's that nobody holds; null with the reason in `error` when the destination's
    /// folder cannot take it.
    static std::unique_ptr<ExportTemporaryFile> create(const QString& destination, QString* error);
    /// The file an export to `destination` replaces or makes: the destination, or the file it
    /// links to, made or not.
    static QString finalPath(const QString& destination);
    ~ExportTemporaryFile();

    ExportTemporaryFile(const ExportTemporaryFile&) = delete;
    ExportTemporaryFile& operator=(const ExportTemporaryFile&) = delete;

    const QString& path() const { return mPath; }
    const QString& destination() const { return mDestination; }

    /// Moves the written file into the destination's place in one step. A file it replaces
    /// keeps who may read it. False, with the reason in `error`, when it cannot; the file is
    /// then removed.
    bool commit(QString* error);

    /// `error`, about this file, told as the user knows it: of the destination, by its name.
    TeskError toldOfDestination(const TeskError& error) const;

private:
    ExportTemporaryFile(QString path, QString destination, QString target, int lock);

    const QString mPath;
    const QString mDestination;
    const QString mTarget; // the destination, or the file it links to
    int mLock;             // an open descriptor holding the file's lock
    bool mCommitted = false;
};

} // namespace tesk
