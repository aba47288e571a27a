#pragma once

#include "app/SingleInstance.h"
#include "document/RecoveryCopies.h"

#include <QObject>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>

namespace tesk {

class TeskDocument;
class TeskDocumentController;
class TeskWindowLayer;

/// The running application: counts launches, keeps the documents and their windows, opens the
/// files it is given (on the command line or by a later start of Tesk), and answers the Help
/// menu. Main thread.
class TeskAppController : public QObject {
    Q_OBJECT
public:
    static inline const QString RunCountKey = QStringLiteral("TeskRunCount");

    TeskAppController();
    ~TeskAppController() override;

    /// Adds one to "TeskRunCount" and gives the new count.
    static int countLaunch();

    /// Opens the files as documents, or the empty window when there are none. The window of the
    /// last file opened comes forward; when none opened, the front window does.
    void openFiles(const QStringList& paths);
    /// The musician's answer when Tesk offers back practice an earlier Tesk left unsaved:
    /// reopen it, throw it away, or ask again at the next start.
    enum class RecoveryAnswer { Reopen, Discard, Later };
    using RecoveryQuestion = std::function<RecoveryAnswer(const QStringList& names)>;
    /// Offers back the practice an earlier Tesk ended without saving, asking `ask` with the
    /// names its windows showed (by default in a dialog). Reopened, each is a window with its
    /// changes unsaved. Call once, at the start, before opening files.
    void offerUnsavedPractice(const RecoveryQuestion& ask = askAboutUnsavedPractice);
    static RecoveryAnswer askAboutUnsavedPractice(const QStringList& names);

    /// Listens for the files of later starts of Tesk.
    void acceptHandOvers(SingleInstance& instance);

    /// Opens a new feedback e-mail in the user's mail program; where there is none to open it,
    /// says so and gives the address to write to.
    void sendFeedback();
    void showAbout();
    /// Closes every window, asking about changed documents; quits unless the user cancels.
    void quit();
    /// Ends as the session, a terminal or `kill` asks (a signal), without a question: nobody may
    /// be there to answer it, and it would hold the session's end up. What is not saved is kept
    /// as a copy that the next start offers back, and the windows stay open, so that no copy
    /// goes with them. A dialog up is answered as its Cancel would be; once none is, emits
    /// `readyToEnd`.
    void endKeepingUnsavedPractice();

    TeskDocumentController* documentController() const { return mDocuments.get(); }
    TeskWindowLayer* windowLayer() const { return mWindows.get(); }

signals:
    /// Main thread: Tesk may end now (see `endKeepingUnsavedPractice`).
    void readyToEnd();

private:
    /// Tells, on the document's window, that its practice is not kept against a crash.
    void warnCopyFailed(TeskDocument* document, const QString& reason);
    /// The practice `copy` kept changes of came back as a new one, apart from its file: says
    /// why on its window, and that saving it asks for a name.
    void tellReopenedApart(TeskDocument* document, const RecoveryCopies::LeftBehind& copy);

    std::unique_ptr<TeskWindowLayer> mWindows;
    std::unique_ptr<TeskDocumentController> mDocuments;
    bool mQuitting = false;
    QTimer* mEndAfterDialog = nullptr;
};

} // namespace tesk
