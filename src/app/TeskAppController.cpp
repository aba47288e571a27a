#include "app/TeskAppController.h"

#include "app/FeedbackMessage.h"
#include "controls/SBindingView.h"
#include "document/TeskDocumentController.h"
#include "widgets/WrappableText.h"
#include "window/TeskWindowLayer.h"
#include "window/WindowCommands.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLocale>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QSettings>
#include <QWidget>

#include <algorithm>
#include <cstdio>

namespace tesk {

namespace {
void askExportFile(QWidget* window, const QString& title, const QString& proposedPath,
                   std::function<void(const QString&, int)> chosen) {
    auto* dialog = new QFileDialog(window, title);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    const QStringList formats{QObject::tr("MPEG-4 audio (*.m4a)"), QObject::tr("AIFF (*.aif)")};
    dialog->setNameFilters(formats);
    dialog->setDirectory(QFileInfo(proposedPath).absolutePath());
    dialog->selectFile(proposedPath + QStringLiteral(".m4a"));
    dialog->setDefaultSuffix(QStringLiteral("m4a"));
    // The window asks before replacing a file, about the one the export will write: the name
    // the dialog returns still takes the format's extension, and a system dialog adds its
    // suffix only after its own check.
    dialog->setOption(QFileDialog::DontConfirmOverwrite);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(
        dialog, &QFileDialog::filterSelected, dialog, [dialog, formats](const QString& f) {
            // The proposed name follows the format chosen.
            const QString extension =
                formats.indexOf(f) == 1 ? QStringLiteral("aif") : QStringLiteral("m4a");
            dialog->setDefaultSuffix(extension);
            const QStringList files = dialog->selectedFiles();
            if (!files.isEmpty()) {
                dialog->selectFile(
                    QFileInfo(WindowRules::exportPath(files.first(), formats.indexOf(f)))
                        .fileName());
            }
        });
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog,
                     [dialog, formats, chosen](const QString& path) {
                         chosen(path, int(formats.indexOf(dialog->selectedNameFilter())));
                     });
    dialog->open();
}
} // namespace

TeskAppController::TeskAppController() {
    WindowServices services;
    services.sendFeedback = [this] { sendFeedback(); };
    services.showAbout = [this] { showAbout(); };
    services.quit = [this] { quit(); };
    services.askExportFile = askExportFile;
    mWindows = std::make_unique<TeskWindowLayer>(services);
    mDocuments = std::make_unique<TeskDocumentController>(mWindows.get());
    // The document controller opens dragged files itself (TeskFileDraggedNotification).
    mWindows->services().documents = mDocuments.get();
    connect(&mDocuments->recoveryCopies(), &RecoveryCopies::copyFailed, this,
            &TeskAppController::warnCopyFailed);
    // A look four times a second, only while a request to end waits for dialogs to go.
    mEndAfterDialog = new QTimer(this);
    mEndAfterDialog->setInterval(250);
    connect(mEndAfterDialog, &QTimer::timeout, this, &TeskAppController::endKeepingUnsavedPractice);
}

TeskAppController::~TeskAppController() {
    // The windows go before the documents they show.
    mWindows.reset();
    mDocuments.reset();
}

int TeskAppController::countLaunch() {
    QSettings settings;
    const int count = settings.value(RunCountKey, 0).toInt() + 1;
    settings.setValue(RunCountKey, count);
    return count;
}

void TeskAppController::openFiles(const QStringList& paths) {
    const bool opened =
        mDocuments->openFiles(paths).contains(TeskDocumentController::OpenReply::Success);
    if (mDocuments->documents().isEmpty())
        mDocuments->newDocument();
    // A file opened has brought its own window forward; raising the window that was active
    // would put it back behind.
    if (opened)
        return;
    if (QWidget* front = QApplication::activeWindow()) {
        front->raise();
        front->activateWindow();
    } else if (!mDocuments->documents().isEmpty()) {
        if (auto* window = mWindows->windowFor(mDocuments->documents().last()))
            window->showWindow();
    }
}

namespace {
/// Answers `dialog` as its Cancel would: the answer that changes nothing (a question about
/// saving, a file to choose, an export to stop). A message box says Cancel only through its
/// button: rejected, it answers none of its buttons.
void answerCancel(QWidget* dialog) {
    auto* box = qobject_cast<QMessageBox*>(dialog);
    if (QAbstractButton* cancel = box ? box->button(QMessageBox::Cancel) : nullptr)
        cancel->click();
    else if (box && box->escapeButton())
        box->escapeButton()->click();
    else if (auto* progress = qobject_cast<QProgressDialog*>(dialog))
        progress->cancel(); // rejected, it would only hide
    else if (auto* asking = qobject_cast<QDialog*>(dialog))
        asking->reject();
    else
        dialog->close();
}

/// The date and time as the user's locale writes them short, to the second: copies left by
/// Tesks that ended together are written seconds apart, and most locales' short time stops at
/// the minute.
QString timeToTheSecond(const QDateTime& time) {
    const QLocale locale;
    QString timeFormat = locale.timeFormat(QLocale::ShortFormat);
    // The seconds follow the minutes as the minutes follow the hours: "9.26.20" in Finnish.
    const qsizetype minutes = timeFormat.indexOf(QLatin1String("mm"));
    if (!timeFormat.contains(QLatin1Char('s')) && minutes > 0)
        timeFormat.insert(minutes + 2, timeFormat.at(minutes - 1) + QStringLiteral("ss"));
    return locale.toString(time,
                           locale.dateFormat(QLocale::ShortFormat) + QLatin1Char(' ') + timeFormat);
}
} // namespace

void TeskAppController::offerUnsavedPractice(const RecoveryQuestion& ask) {
    RecoveryCopies& recovery = mDocuments->recoveryCopies();
    const QList<RecoveryCopies::LeftBehind> copies = recovery.leftBehind();
    if (copies.isEmpty())
        return;
    // Copies of one practice (left by two Tesks that ended) are told apart by their time.
    QStringList names;
    for (const RecoveryCopies::LeftBehind& copy : copies) {
        const bool shared = std::count_if(copies.begin(), copies.end(), [&](const auto& other) {
                                return other.name == copy.name;
                            }) > 1;
        names.append(shared
                         ? QStringLiteral("%1 (%2)").arg(copy.name, timeToTheSecond(copy.written))
                         : copy.name);
    }
    switch (ask(names)) {
    case RecoveryAnswer::Later:
        return;
    case RecoveryAnswer::Discard:
        for (const RecoveryCopies::LeftBehind& copy : copies)
            RecoveryCopies::discard(copy);
        return;
    case RecoveryAnswer::Reopen:
        for (const RecoveryCopies::LeftBehind& copy : copies) {
            TeskError error;
            TeskDocument* reopened = mDocuments->reopenRecoveryCopy(copy, &error);
            if (!reopened) {
                // A copy that cannot be read holds nothing to give back.
                std::fprintf(stderr, "tesk: cannot reopen the unsaved practice of \"%s\": %s\n",
                             qPrintable(copy.name), qPrintable(error.localizedDescription()));
                RecoveryCopies::discard(copy);
            } else if (!copy.fileURL.isEmpty() && reopened->fileURL().isEmpty()) {
                tellReopenedApart(reopened, copy);
            }
        }
        return;
    }
}

TeskAppController::RecoveryAnswer
TeskAppController::askAboutUnsavedPractice(const QStringList& names) {
    QMessageBox box(QMessageBox::Question, tr("Unsaved Practice"), QString());
    if (names.size() == 1) {
        box.setTextFormat(Qt::PlainText);
        box.setText(tr("The changes to “%1” were not saved when Tesk last ended.")
                        .arg(wrappableText(names[0])));
    } else {
        QStringList items;
        for (const QString& name : names)
            items.append(QStringLiteral("<li>%1</li>").arg(wrappableText(name).toHtmlEscaped()));
        box.setTextFormat(Qt::RichText);
        box.setText(tr("The changes to these were not saved when Tesk last ended:<ul>%1</ul>")
                        .arg(items.join(QString())));
    }
    box.setInformativeText(names.size() == 1
                               ? tr("Reopen it to keep its markers and settings.")
                               : tr("Reopen them to keep their markers and settings."));
    QPushButton* reopen = box.addButton(tr("Reopen"), QMessageBox::AcceptRole);
    QPushButton* discard = box.addButton(tr("Discard"), QMessageBox::DestructiveRole);
    QPushButton* later = box.addButton(tr("Not Now"), QMessageBox::RejectRole);
    box.setDefaultButton(reopen);
    box.setEscapeButton(later);
    box.exec();
    if (box.clickedButton() == discard)
        return RecoveryAnswer::Discard;
    return box.clickedButton() == reopen ? RecoveryAnswer::Reopen : RecoveryAnswer::Later;
}

void TeskAppController::acceptHandOvers(SingleInstance& instance) {
    connect(&instance, &SingleInstance::filesReceived, this,
            [this](const QStringList& paths) { openFiles(paths); });
}

void TeskAppController::sendFeedback() {
    if (QDesktopServices::openUrl(FeedbackMessage::mailtoURL(FeedbackMessage::versionText(),
                                                             FeedbackMessage::systemVersion())))
        return;
    // No mail program is set up (or none that the desktop can start): the command would
    // otherwise do nothing that can be seen.
    auto* box = new QMessageBox(QMessageBox::Information, tr("Send Feedback"),
                                tr("Tesk could not open a mail program."), QMessageBox::Ok,
                                QApplication::activeWindow());
    box->setInformativeText(tr("Please write to %1 from the mail you use; the address can be "
                               "selected and copied here.")
                                .arg(FeedbackMessage::SupportAddress));
    box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void TeskAppController::tellReopenedApart(TeskDocument* document,
                                          const RecoveryCopies::LeftBehind& copy) {
    TeskDocumentWindowController* window = mWindows->windowFor(document);
    if (!window)
        return;
    const QString name = QFileInfo(copy.fileURL.toLocalFile()).fileName();
    window->presentMessage(
        copy.fileChangedSince
            ? tr("“%1” was saved again after these changes to it were made.").arg(name)
            : tr("“%1” is open already.").arg(name),
        tr("The changes are reopened as a new practice, so that neither is lost. Save it under a "
           "name of its own to keep them."));
}

void TeskAppController::warnCopyFailed(TeskDocument* document, const QString& reason) {
    TeskDocumentWindowController* window = mWindows->windowFor(document);
    if (!window)
        return;
    window->presentMessage(
        tr("Tesk cannot keep a copy of your unsaved practice."),
        tr("If Tesk ends unexpectedly, what you have not saved will be lost: save your practice "
           "to keep it. Copies go in “%1”.")
            .arg(QDir::toNativeSeparators(mDocuments->recoveryCopies().folder())),
        reason);
}

void TeskAppController::showAbout() {
    QMessageBox::about(
        QApplication::activeWindow(), tr("About Tesk"),
        tr("<h3>Tesk %1</h3><p>Slow down a song without changing its pitch, or change its pitch "
           "without changing its speed, to hear and learn the notes.</p>"
           "<p>Tesk is free software under the GNU General Public License, version 2 or later. It "
           "is built with Qt (LGPL 3), FFmpeg (LGPL 2.1 or later), Rubber Band (GPL 2 or later), "
           "SDL 2 (zlib licence) and KISS FFT (BSD 3-clause).</p>")
            .arg(FeedbackMessage::versionText()));
}

void TeskAppController::endKeepingUnsavedPractice() {
    // A drag under way ends where it got to: a loop being drawn is the document's only then.
    for (QWidget* window : QApplication::topLevelWidgets()) {
        for (SBindingView* view : window->findChildren<SBindingView*>())
            view->endMouseGesture();
    }
    RecoveryCopies& copies = mDocuments->recoveryCopies();
    copies.writeDueCopies();
    // Practice no copy keeps (its folder cannot be written) is asked about, as Quit asks.
    const bool kept = copies.keepsEveryPractice();
    if (QWidget* dialog = QApplication::activeModalWidget()) {
        if (kept)
            answerCancel(dialog);
        mEndAfterDialog->start(); // a dialog's own loop ends with its answer: the end waits
        return;
    }
    mEndAfterDialog->stop();
    if (kept)
        emit readyToEnd();
    else
        quit();
}

void TeskAppController::quit() {
    // Asked again while a window asks about its changes: that question is answered first.
    if (mQuitting)
        return;
    const QScopedValueRollback quitting(mQuitting, true);
    // The last song's window closing must not bring up an empty one on the way out.
    mDocuments->setQuitting(true);
    if (mWindows->closeAll())
        QApplication::quit();
    else
        mDocuments->setQuitting(false);
}

} // namespace tesk
