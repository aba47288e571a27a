#pragma once

#include "document/TeskDocumentController.h"
#include "window/TeskDocumentWindowController.h"

#include <QList>
#include <QObject>
#include <map>

namespace tesk {

/// Makes and closes the windows of the documents, runs the open dialog and shows errors, for
/// the document controller. Main thread.
class TeskWindowLayer : public TeskDocumentWindowLayer {
public:
    explicit TeskWindowLayer(WindowServices services);
    ~TeskWindowLayer() override;

    void makeWindowControllers(TeskDocument* document) override;
    void closeWindows(TeskDocument* document) override;
    QStringList runOpenPanel() override;
    /// Where the open dialog starts: the folder songs were last opened from, else the music
    /// folder, else home.
    static QString openPanelFolder();
    void presentError(const TeskError& error) override;

    /// The window of a document, if it has one.
    TeskDocumentWindowController* windowFor(TeskDocument* document) const;
    /// Asks every changed document's window to close; false when the user kept one open. With
    /// two or more changed, first asks whether to ask about each or throw every change away.
    bool closeAll();
    WindowServices& services() { return mServices; }
    /// The active document window, else the newest one shown; null when none shows.
    TeskDocumentWindowController* frontWindow() const;

private:
    QuitReview askReviewChanges(int changedCount, QWidget* over);

    WindowServices mServices;
    std::map<TeskDocument*, TeskDocumentWindowController*> mWindows;
    QList<TeskDocumentWindowController*> mMadeOrder; // oldest first
    QObject mLifetime;                               // what the layer has queued goes with it
};

} // namespace tesk
