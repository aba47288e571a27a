#include "window/TeskWindowLayer.h"

#include "document/SongTypes.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <set>

namespace tesk {

TeskWindowLayer::TeskWindowLayer(WindowServices services)
    : mServices(std::move(services)) {}

TeskWindowLayer::~TeskWindowLayer() {
    for (auto& [document, window] : mWindows) {
        window->closeWithoutAsking();
        delete window;
    }
}

void TeskWindowLayer::makeWindowControllers(TeskDocument* document) {
    auto* window = new TeskDocumentWindowController(document, mServices);
    document->addWindowController(window);
    mWindows[document] = window;
    mMadeOrder.append(window);
}

void TeskWindowLayer::closeWindows(TeskDocument* document) {
    const auto found = mWindows.find(document);
    if (found == mWindows.end())
        return;
    TeskDocumentWindowController* window = found->second;
    mWindows.erase(found);
    mMadeOrder.removeAll(window);
    window->closeWithoutAsking();
    // The window may be the one whose close is running now.
    window->deleteLater();
}

QStringList TeskWindowLayer::runOpenPanel() {
    // While the dialog is up, a song handed over by a second start of Tesk can close the
    // window it belongs to, and the dialog with it: it lives on the heap and is watched.
    QPointer<QFileDialog> dialog =
        new QFileDialog(QApplication::activeWindow(), QObject::tr("Open"));
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters({QObject::tr("Songs and practice documents (*.tesk *.mp3 *.m4a "
                                        "*.aif *.aiff *.aifc *.wav)"),
                            QObject::tr("All files (*)")});
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return {};
    const QStringList files = accepted ? dialog->selectedFiles() : QStringList();
    delete dialog;
    return files;
}

void TeskWindowLayer::presentError(const TeskError& error) {
    // On the window in front, as a window-modal message; at start-up the first window is not
    // there yet, so the message waits for it.
    if (TeskDocumentWindowController* window = frontWindow()) {
        window->presentError(error);
        return;
    }
    QTimer::singleShot(0, &mLifetime, [this, error] {
        if (TeskDocumentWindowController* window = frontWindow())
            window->presentError(error);
        else
            QMessageBox::warning(nullptr, error.localizedDescription(),
                                 error.localizedRecoverySuggestion());
    });
}

TeskDocumentWindowController* TeskWindowLayer::frontWindow() const {
    if (auto* active = qobject_cast<TeskDocumentWindowController*>(QApplication::activeWindow()))
        return active;
    for (auto window = mMadeOrder.rbegin(); window != mMadeOrder.rend(); ++window) {
        if ((*window)->isVisible())
            return *window;
    }
    return nullptr;
}

TeskDocumentWindowController* TeskWindowLayer::windowFor(TeskDocument* document) const {
    const auto found = mWindows.find(document);
    return found == mWindows.end() ? nullptr : found->second;
}

bool TeskWindowLayer::closeAll() {
    // One window at a time, looking at the map again after each: closing changes it, and a
    // song handed over while a question is up opens a window that must be asked about too.
    // Closed windows are deleted later, so none asked here can share an address with a new one.
    std::set<TeskDocumentWindowController*> asked;
    for (;;) {
        const auto next = std::find_if(mWindows.begin(), mWindows.end(), [&](const auto& entry) {
            return !asked.count(entry.second);
        });
        if (next == mWindows.end())
            return true;
        TeskDocumentWindowController* window = next->second;
        asked.insert(window);
        if (!window->close())
            return false;
    }
}

} // namespace tesk
