#include "window/TeskWindowLayer.h"

#include "document/SongTypes.h"
#include "widgets/WrappableText.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <vector>

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

namespace {
const QString kOpenFolderKey = QStringLiteral("TeskOpenFolder");
} // namespace

QString TeskWindowLayer::openPanelFolder() {
    // Where songs were last opened from, else the music folder: not wherever Tesk was started.
    for (const QString& folder :
         {QSettings().value(kOpenFolderKey).toString(),
          QStandardPaths::writableLocation(QStandardPaths::MusicLocation)}) {
        if (!folder.isEmpty() && QFileInfo(folder).isDir())
            return folder;
    }
    return QDir::homePath();
}

QStringList TeskWindowLayer::runOpenPanel() {
    // While the dialog is up, a song handed over by a second start of Tesk can close the
    // window it belongs to, and the dialog with it: it lives on the heap and is watched.
    QPointer<QFileDialog> dialog =
        new QFileDialog(QApplication::activeWindow(), QObject::tr("Open"));
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters(
        {QObject::tr("Songs and practice documents (*.tesk %1)").arg(songFilePatterns()),
         QObject::tr("All files (*)")});
    dialog->setDirectory(openPanelFolder());
    // Room for the names and the list of types: Qt's own dialog starts too small for them.
    dialog->resize(dialog->sizeHint().expandedTo(QSize(760, 480)));
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return {};
    const QStringList files = accepted ? dialog->selectedFiles() : QStringList();
    delete dialog;
    if (!files.isEmpty())
        QSettings().setValue(kOpenFolderKey, QFileInfo(files.first()).absolutePath());
    return files;
}

void TeskWindowLayer::presentError(const TeskError& error) {
    // On the window in front, as a window-modal message, once the files opened with this one
    // are: a song opened after it replaces the empty window, which would take the message
    // away with it. At start-up the first window is not there before then either.
    QTimer::singleShot(0, &mLifetime, [this, error] {
        if (TeskDocumentWindowController* window = frontWindow())
            window->presentError(error);
        else
            QMessageBox::warning(nullptr, error.localizedDescription(),
                                 wrappableText(error.localizedRecoverySuggestion()));
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

QuitReview TeskWindowLayer::askReviewChanges(int changedCount, QWidget* over) {
    if (mServices.askReviewChanges)
        return mServices.askReviewChanges(changedCount);
    // On a changed window, which no song handed over meanwhile replaces; watched all the same,
    // since the question's own loop runs whatever else happens meanwhile.
    QPointer<QMessageBox> box = new QMessageBox(
        QMessageBox::Warning, QObject::tr("Quit Tesk"),
        QObject::tr("You have %1 practices not saved. Do you want to review them before "
                    "quitting?")
            .arg(changedCount),
        QMessageBox::NoButton, over);
    box->setInformativeText(
        QObject::tr("If you don’t review them, their speed, pitch, loops, markers and effects "
                    "will be lost."));
    QPushButton* review =
        box->addButton(QObject::tr("&Review Practices…"), QMessageBox::AcceptRole);
    QPushButton* discard =
        box->addButton(QObject::tr("&Discard All"), QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(review);
    box->exec();
    if (!box)
        return QuitReview::Cancel;
    const QAbstractButton* clicked = box->clickedButton();
    delete box;
    if (clicked == review)
        return QuitReview::ReviewEach;
    return clicked == discard ? QuitReview::DiscardAll : QuitReview::Cancel;
}

bool TeskWindowLayer::closeAll() {
    // Every song opened is a practice not yet saved: quitting with several of them open asks
    // once whether to ask about each, rather than asking about each straight away.
    std::vector<QPointer<TeskDocumentWindowController>> discarding;
    for (TeskDocumentWindowController* window : mMadeOrder) {
        if (window->hasChangesToAskAbout())
            discarding.emplace_back(window);
    }
    if (discarding.size() >= 2) {
        switch (askReviewChanges(int(discarding.size()), discarding.front())) {
        case QuitReview::ReviewEach:
            discarding.clear();
            break;
        case QuitReview::DiscardAll:
            break;
        case QuitReview::Cancel:
            return false;
        }
    } else {
        discarding.clear();
    }
    // Windows asked about are watched, so that a new window made where a deleted one was is not
    // taken for it. Only the practices the answer covered go unasked: one handed over since is
    // asked about.
    std::vector<QPointer<TeskDocumentWindowController>> asked;
    const auto among = [](const std::vector<QPointer<TeskDocumentWindowController>>& windows,
                          TeskDocumentWindowController* window) {
        return std::any_of(windows.begin(), windows.end(),
                           [window](const auto& each) { return each == window; });
    };
    const auto closeWindow = [&](TeskDocumentWindowController* window) {
        asked.emplace_back(window);
        return among(discarding, window) ? window->closeDiscardingChanges() : window->close();
    };
    // Throwing changes away, the windows of running exports are asked about first: kept
    // running, they keep Tesk open, and nothing should have been thrown away for that.
    if (!discarding.empty()) {
        const QList<TeskDocumentWindowController*> windows = mMadeOrder;
        for (TeskDocumentWindowController* window : windows) {
            if (window->document()->isExporting() && !closeWindow(window))
                return false;
        }
    }
    // One window at a time, looking again after each: closing changes the windows, and a song
    // handed over while a question is up opens a window that must be asked about too. The one
    // in front is asked about first, then the others from the newest.
    for (;;) {
        TeskDocumentWindowController* window = nullptr;
        auto* active = qobject_cast<TeskDocumentWindowController*>(QApplication::activeWindow());
        if (active && mMadeOrder.contains(active) && !among(asked, active))
            window = active;
        for (auto made = mMadeOrder.rbegin(); window == nullptr && made != mMadeOrder.rend();
             ++made) {
            if (!among(asked, *made))
                window = *made;
        }
        if (window == nullptr)
            return true;
        if (!closeWindow(window))
            return false;
    }
}

} // namespace tesk
