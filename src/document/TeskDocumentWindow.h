#pragma once

#include <QRectF>

namespace tesk {

/// What a document needs of the window that shows it; the window layer implements it.
/// Main thread.
class TeskDocumentWindow {
public:
    virtual ~TeskDocumentWindow() = default;
    /// Brings the window forward.
    virtual void showWindow() = 0;
    /// The document's display name may have changed.
    virtual void synchronizeWindowTitleWithDocumentName() = 0;
    /// The window's frame now; a saved document keeps it.
    virtual QRectF windowFrame() const = 0;
};

} // namespace tesk
