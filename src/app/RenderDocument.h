#pragma once

#include "app/RenderOptions.h"
#include "document/TeskDocumentFile.h"
#include "document/TeskFileReference.h"

#include <QString>
#include <optional>

namespace tesk {

/// A practice document as `tesk-render` uses it: read for its song and settings (--document),
/// or made from the command line (--save-document). Works from the file's contents alone,
/// without a TeskDocument, which would want a player and a sound device.
struct RenderDocument {
    /// Where the document's song is now.
    QString songPath;
    TeskDocumentContents contents;
};

/// Reads the document at `path` and finds its song. Null, with `error` set to one line naming
/// the file, when the document cannot be read, is damaged, or its song cannot be found.
/// Any thread.
std::optional<RenderDocument> readRenderDocument(const QString& path, QString* error);

/// Fills in the speed, pitch, level, effects and (with --loop) frame range of `options` from
/// `contents`, keeping what the command line named, with the rules a document applies when it
/// opens: a missing volume is silence, a missing or zero speed keeps 1, missing effects are
/// the defaults. Returns false, with `error` set, when --loop asks for a loop range the
/// document does not have. Main thread (the effects are read through TeskEffectsSettings).
bool applyDocumentSettings(const TeskDocumentContents& contents, RenderOptions& options,
                           QString* error);

/// The contents of a new document for `song` with the settings, loop range and markers of
/// `options`, the others at a new document's defaults. `songFrames` is the song's length: a
/// loop ending past it stops at the song's end. Null, with `error` set, when the loop holds
/// none of the song or a marker is past its end. Main thread (the effects are made through
/// TeskEffectsSettings).
std::optional<TeskDocumentContents> newDocumentContents(const RenderOptions& options,
                                                        const TeskFileReference& song,
                                                        qint64 songFrames, QString* error);

} // namespace tesk
