#include "window/TeskDocumentWindowController.h"

#include "audio/TeskExtendedAudioFilePlayer.h"
#include "audio/TeskOutputAudioUnit.h"
#include "document/SongTypes.h"
#include "document/TeskDocumentController.h"
#include "effects/TeskEQSettingsView.h"
#include "effects/TeskEffectsViewController.h"
#include "effects/TeskPanSlider.h"
#include "effects/TeskVocalRemovalSettingsView.h"
#include "waveform/WaveformView.h"
#include "widgets/KLTexturedSlider.h"
#include "widgets/NamedImage.h"
#include "widgets/WrappableText.h"
#include "window/PressedImageButton.h"
#include "window/SongViews.h"
#include "window/TeskDropView.h"
#include "window/TeskMetadataView.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QProxyStyle>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QSplitter>
#include <QStyleOptionMenuItem>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

namespace tesk {

namespace {
constexpr int kBottomBarHeight = 69;
const QString kUntitledFrameKey = QStringLiteral("untitledDocumentWindowFrame");

QIcon buttonIcon(const QString& name, qreal ratio) {
    return QIcon(NamedImage::named(name).pixmap(QSizeF(32, 32), ratio));
}

/// A button's tip: what it does and the key that does it too, "Play (Space)".
QString tipWithKey(const QString& name, WindowCommand command) {
    return QStringLiteral("%1 (%2)").arg(name, WindowRules::keyHint(command));
}

PressedImageButton* roundButton(const QString& name, WindowCommand command, QWidget* parent) {
    auto* button = new PressedImageButton(parent);
    button->setAutoRaise(true);
    button->setIconSize(QSize(32, 32));
    button->setToolTip(tipWithKey(name, command));
    button->setAccessibleName(name);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

KLTexturedSlider* barSlider(const QString& name, int indicator, QWidget* parent) {
    auto* slider = new KLTexturedSlider(parent);
    slider->setIndicatorIndex(indicator);
    slider->setFixedWidth(150);
    // Reached with Tab, its arrows move it; a click leaves the keys to the window's commands.
    slider->setFocusPolicy(Qt::TabFocus);
    slider->setAccessibleName(name);
    slider->setToolTip(name);
    return slider;
}
} // namespace

TeskDocumentWindowController::TeskDocumentWindowController(TeskDocument* document,
                                                           WindowServices services)
    : mDocument(document)
    , mServices(std::move(services)) {
    setAttribute(Qt::WA_DeleteOnClose, false);
    mHUDTimer.setInterval(1000 / 15);
    mHUDTimer.setTimerType(Qt::PreciseTimer);
    connect(&mHUDTimer, &QTimer::timeout, this, &TeskDocumentWindowController::updateHUD);
    // The play head follows the screen's rate; the position is extrapolated for each frame.
    mWaveformTimer.setTimerType(Qt::PreciseTimer);
    mWaveformTimer.setInterval(16);
    connect(&mWaveformTimer, &QTimer::timeout, this, &TeskDocumentWindowController::updateWaveform);

    buildMenus();
    if (isEmptyWindow())
        buildUntitledContent();
    else {
        buildPopulatedContent();
        // The keys start with the window's commands, not with the first switch of an effects
        // panel that a practice opens with: Space plays rather than turning the equalizer off.
        mViews->waveformView()->setFocus();
    }
    mDocument->setPlaybackDelegate(this);
    mDocument->setMetadataDelegate(this);
    placeWindow();
    synchronizeWindowTitleWithDocumentName();
    updateButtonImages();
    validateMenuItems();
    qApp->installEventFilter(this);
    connect(mDocument, &TeskDocument::songMetadataChanged, this, [this] {
        documentDidImportMetadata(mDocument);
        synchronizeWindowTitleWithDocumentName();
    });
    connect(mDocument, &TeskDocument::documentEditedChanged, this,
            [this] { setWindowModified(mDocument->isDocumentEdited()); });
    if (mDocument->songError())
        QTimer::singleShot(0, this, &TeskDocumentWindowController::showSongProblem);
}

TeskDocumentWindowController::~TeskDocumentWindowController() {
    qApp->removeEventFilter(this);
    if (!mClosed)
        closeWithoutAsking();
}

// --- Building -------------------------------------------------------------------------------

void TeskDocumentWindowController::buildUntitledContent() {
    TeskDropAcceptor acceptor;
    acceptor.canOpen = [](const QUrl& url) { return TeskDocumentController::canOpenFile(url); };
    acceptor.open = [documents = mServices.documents](const QMimeData& data) {
        if (documents)
            documents->newDocumentFromiTunes(data);
    };
    auto* dropView = new TeskDropView(acceptor, this);
    setCentralWidget(dropView);
    setFixedSize(dropView->sizeHint());
}

void TeskDocumentWindowController::buildPopulatedContent() {
    TeskDropAcceptor acceptor;
    acceptor.canOpen = [](const QUrl& url) { return TeskDocumentController::canOpenFile(url); };
    acceptor.open = [documents = mServices.documents](const QMimeData& data) {
        if (documents)
            documents->newDocumentFromiTunes(data);
    };
    auto* content = new TeskDraggableContentView(acceptor, this);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    mNoticeLabel = new QLabel(content);
    mNoticeLabel->setWordWrap(true);
    mNoticeLabel->setVisible(false);
    mNoticeLabel->setContentsMargins(12, 6, 12, 6);
    mNoticeLabel->setStyleSheet(QStringLiteral("background: #fff4d6; color: #4a3b00;"));
    column->addWidget(mNoticeLabel);

    mSplitView = new QSplitter(Qt::Vertical, content);
    mSplitView->setChildrenCollapsible(true);
    auto* songArea = new QWidget(mSplitView);
    auto* songColumn = new QVBoxLayout(songArea);
    songColumn->setContentsMargins(0, 0, 0, 0);
    songColumn->setSpacing(0);

    auto* topRow = new QHBoxLayout;
    topRow->setContentsMargins(0, 0, 8, 0);
    mMetadataView = new TeskMetadataView(songArea);
    topRow->addWidget(mMetadataView, 1);
    mViews = new SongViews(mDocument, songArea);
    topRow->addWidget(mViews->transportPanel(), 0, Qt::AlignVCenter);
    songColumn->addLayout(topRow);
    songColumn->addWidget(mViews->waveformArea(), 1);

    // The bottom bar: transport buttons, zoom and volume, the effects toggle.
    auto* bar = new QWidget(songArea);
    bar->setFixedHeight(kBottomBarHeight);
    auto* barRow = new QHBoxLayout(bar);
    barRow->setContentsMargins(12, 0, 12, 0);
    mRewindButton = roundButton(tr("Rewind"), WindowCommand::Rewind, bar);
    mPlayPauseButton = roundButton(tr("Play"), WindowCommand::PlayPause, bar);
    mFastForwardButton = roundButton(tr("Fast Forward"), WindowCommand::FastForward, bar);
    mMarkButton = roundButton(tr("Drop Generic Marker"), WindowCommand::DropGenericMarker, bar);
    for (QToolButton* button : {mRewindButton, mPlayPauseButton, mFastForwardButton, mMarkButton})
        barRow->addWidget(button);
    // Held down, they go on stepping through the song, as their arrow keys do.
    for (QToolButton* button : {mRewindButton, mFastForwardButton}) {
        button->setAutoRepeat(true);
        button->setAutoRepeatInterval(50);
    }
    connect(mRewindButton, &QToolButton::clicked, this, [this] { perform(WindowCommand::Rewind); });
    connect(mPlayPauseButton, &QToolButton::clicked, this,
            [this] { perform(WindowCommand::PlayPause); });
    connect(mFastForwardButton, &QToolButton::clicked, this,
            [this] { perform(WindowCommand::FastForward); });
    connect(mMarkButton, &QToolButton::clicked, this,
            [this] { perform(WindowCommand::DropGenericMarker); });
    barRow->addStretch(1);
    mZoomSlider = barSlider(tr("Zoom"), KLTexturedSlider::ZoomIndicator, bar);
    // The magnifiers and the wheel zoom on the commands' grid, so the slider leaves its steps
    // to them.
    mZoomSlider->setStep(0.0);
    connect(mZoomSlider, &KLTexturedSlider::steppedTowardsMinimum, this,
            [this] { perform(WindowCommand::ZoomOut); });
    connect(mZoomSlider, &KLTexturedSlider::steppedTowardsMaximum, this,
            [this] { perform(WindowCommand::ZoomIn); });
    barRow->addWidget(mZoomSlider);
    barRow->addSpacing(24);
    mVolumeSlider = barSlider(tr("Volume"), KLTexturedSlider::VolumeIndicator, bar);
    barRow->addWidget(mVolumeSlider);
    barRow->addStretch(1);
    mEffectsToggleButton = new QToolButton(bar);
    mEffectsToggleButton->setText(tr("Effects"));
    mEffectsToggleButton->setCheckable(true);
    mEffectsToggleButton->setFocusPolicy(Qt::NoFocus);
    barRow->addWidget(mEffectsToggleButton);
    songColumn->addWidget(bar);

    mEffectsParentView = mViews->effectsPanel();
    mSplitView->addWidget(songArea);
    mSplitView->addWidget(mEffectsParentView);
    songArea->lower(); // first of the splitter's children, where screen readers start
    // Tab goes down the window as it is laid out: the waveform, the bar's sliders, the effects.
    setTabOrder(mViews->waveformView(), mZoomSlider);
    setTabOrder(mZoomSlider, mVolumeSlider);
    setTabOrder(mVolumeSlider, mViews->effectsController()->firstTabStop());
    // Neither part collapses under the handle: the effects toggle alone hides the panel, and a
    // panel dragged to nothing would stay at nothing when shown again.
    mSplitView->setCollapsible(0, false);
    mSplitView->setCollapsible(1, false);
    column->addWidget(mSplitView, 1);
    setCentralWidget(content);
    bindViews();
}

void TeskDocumentWindowController::bindViews() {
    // Sliders and the effects toggle follow the document and write back to it.
    const auto showZoom = [this] {
        mZoomSlider->setValue(mDocument->zoomLevel());
        validateMenuItems();
    };
    const auto showVolume = [this] {
        mVolumeSlider->setValue(mDocument->playbackVolume());
        // The slider shows no number of its own.
        mVolumeSlider->setToolTip(tr("Volume %1 %").arg(std::lround(mVolumeSlider->value() * 100)));
    };
    const auto showEffects = [this] {
        const bool visible = mDocument->effectsVisible();
        mEffectsToggleButton->setChecked(visible);
        mEffectsToggleButton->setToolTip(visible ? tr("Hide Effects") : tr("Show Effects"));
        mShowEffectsAction->setText(visible ? tr("Hide &Effects") : tr("Show &Effects"));
        // A switch that keeps the focus once hidden would go on taking the keys out of sight.
        if (!visible && mEffectsParentView->isAncestorOf(QApplication::focusWidget()))
            mViews->waveformView()->setFocus();
        mEffectsParentView->setVisible(visible);
        // The window's height follows the content: taller with the effects panel, and back
        // without it. The layouts measure again first: the splitter would still count the
        // panel just hidden.
        if (isVisible())
            QTimer::singleShot(0, this, [this] {
                mSplitView->updateGeometry();
                centralWidget()->layout()->activate();
                layout()->activate();
                setFixedHeight(sizeHint().height());
            });
    };
    connect(mDocument, &TeskDocument::zoomLevelChanged, this, showZoom);
    connect(mDocument, &TeskDocument::playbackVolumeChanged, this, showVolume);
    connect(mDocument, &TeskDocument::effectsVisibleChanged, this, showEffects);
    connect(mZoomSlider, &KLTexturedSlider::valueChanged, mDocument, &TeskDocument::setZoomLevel);
    connect(mVolumeSlider, &KLTexturedSlider::valueChanged, mDocument,
            &TeskDocument::setPlaybackVolume);
    connect(mEffectsToggleButton, &QToolButton::toggled, this,
            [this](bool on) { mDocument->setEffectsVisible(on); });
    connect(mDocument, &TeskDocument::loopRangeChanged, this,
            &TeskDocumentWindowController::validateMenuItems);
    showZoom();
    showVolume();
    showEffects();
    mViews->bind(this);
    connect(mViews->waveformView(), &WaveformView::loopButtonClicked, this,
            [this] { perform(WindowCommand::Loop); });
}

void TeskDocumentWindowController::unbindViews() {
    if (mViews)
        mViews->unbind();
}

namespace {
/// Lights the menu bar's chosen title while the bar has the keys, as after Escape closes a
/// menu: the desktop's style may light it only while its menu is open, and Space or a letter
/// would then open a menu the musician cannot see is chosen.
class MenuBarStyle : public QProxyStyle {
public:
    // Over a style of the application's own kind, not the platform's default.
    MenuBarStyle()
        : QProxyStyle(QApplication::style()->name()) {}

    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
        const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
        if (element == CE_MenuBarItem && item && (item->state & State_Selected) && widget &&
            widget->hasFocus()) {
            QStyleOptionMenuItem lit(*item);
            lit.state |= State_Sunken;
            QProxyStyle::drawControl(element, &lit, painter, widget);
            return;
        }
        QProxyStyle::drawControl(element, option, painter, widget);
    }
};

/// The desktop's keys for `key`, or `fallback` where it gives none: desktops without a key
/// theme of their own give Save As and Quit no key.
QList<QKeySequence> keysOr(QKeySequence::StandardKey key, const QKeySequence& fallback) {
    QList<QKeySequence> keys = QKeySequence::keyBindings(key);
    if (keys.isEmpty())
        keys.append(fallback);
    return keys;
}

QList<QKeySequence> quitKeys() {
    return keysOr(QKeySequence::Quit, QKeySequence(Qt::CTRL | Qt::Key_Q));
}

/// A menu item's text with the window's key for it, which the menu shows where a shortcut goes.
QString titleWithKeyHint(const QString& title, WindowCommand command) {
    const QString hint = WindowRules::keyHint(command);
    return hint.isEmpty() ? title : title + QLatin1Char('\t') + hint;
}
} // namespace

void TeskDocumentWindowController::buildMenus() {
    using C = WindowCommand;
    const auto add = [this](QMenu* menu, C command, const QString& title,
                            const QKeySequence& keys = {}) {
        QAction* action = menu->addAction(titleWithKeyHint(title, command));
        if (!keys.isEmpty())
            action->setShortcut(keys);
        connect(action, &QAction::triggered, this, [this, command] { perform(command); });
        mActions[command] = action;
        return action;
    };
    auto* barStyle = new MenuBarStyle;
    barStyle->setParent(menuBar());
    menuBar()->setStyle(barStyle);
    QMenu* file = menuBar()->addMenu(tr("&File"));
    if (mServices.documents) {
        file->addAction(tr("&New"), QKeySequence::New, this,
                        [this] { mServices.documents->newDocument(); });
        file->addAction(tr("&Open…"), QKeySequence::Open, this,
                        [this] { mServices.documents->openDocument(); });
        mRecentMenu = file->addMenu(tr("Open &Recent"));
        mRecentMenu->setToolTipsVisible(true); // the whole path, over each item
        connect(mRecentMenu, &QMenu::aboutToShow, this, [this] {
            mRecentMenu->clear();
            const QList<QUrl> urls = mServices.documents->recentDocumentURLs();
            QStringList paths;
            for (const QUrl& url : urls)
                paths.append(url.toLocalFile());
            const QStringList titles = WindowRules::recentItemTitles(paths);
            for (qsizetype i = 0; i < urls.size(); ++i) {
                const QUrl url = urls[i];
                QAction* item = mRecentMenu->addAction(
                    titles[i], this, [this, url] { mServices.documents->openRecentDocument(url); });
                item->setToolTip(paths[i]);
            }
            mRecentMenu->addSeparator();
            QAction* clear = mRecentMenu->addAction(
                tr("Clear Menu"), this, [this] { mServices.documents->clearRecentDocuments(); });
            clear->setEnabled(mRecentMenu->actions().size() > 2);
        });
    }
    file->addSeparator();
    file->addAction(tr("&Close"), QKeySequence::Close, this, [this] { close(); });
    add(file, C::Save, tr("&Save"), QKeySequence::Save);
    add(file, C::SaveAs, tr("Save &As…"))
        ->setShortcuts(
            keysOr(QKeySequence::SaveAs, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S)));
    file->addSeparator();
    add(file, C::ExportSong, tr("&Export Song…"));
    add(file, C::ExportLoop, tr("Export &Loop…"));
    file->addSeparator();
    add(file, C::PageSetup, tr("Page Set&up…"));
    add(file, C::Print, tr("&Print…"), QKeySequence::Print);
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &TeskDocumentWindowController::quit)
        ->setShortcuts(quitKeys());
    // A held key would go on to the next window: holding Close would close them all.
    for (QAction* action : file->actions())
        action->setAutoRepeat(false);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    // Enabled and named as the undo stack changes, so their keys work whenever there is
    // something to undo or redo.
    QAction* undo = mDocument->undoManager()->createUndoAction(this, tr("&Undo"));
    undo->setShortcut(QKeySequence::Undo);
    edit->addAction(undo);
    QAction* redo = mDocument->undoManager()->createRedoAction(this, tr("&Redo"));
    redo->setShortcut(QKeySequence::Redo);
    edit->addAction(redo);
    edit->addSeparator();
    // What is selected in Tesk is the loop, and the menu says so.
    add(edit, C::SelectAll, tr("Loop the &Whole Song"), QKeySequence::SelectAll);
    add(edit, C::ClearSelection, tr("&Clear Loop"));

    QMenu* controls = menuBar()->addMenu(tr("&Controls"));
    add(controls, C::PlayPause, tr("&Play"));
    add(controls, C::Loop, tr("&Loop"));
    add(controls, C::Rewind, tr("&Rewind"));
    add(controls, C::FastForward, tr("&Fast Forward"));
    controls->addSeparator();
    add(controls, C::JumpToBeginning, tr("Jump to &Beginning"));
    add(controls, C::JumpToEnd, tr("&Jump to End"));
    add(controls, C::JumpToNextMarker, tr("Jump to &Next Marker"));
    add(controls, C::JumpToPreviousMarker, tr("Jump to Previous &Marker"));
    add(controls, C::JumpToNextHighLevelMarker, tr("Jump to Next &Section"));
    add(controls, C::JumpToPreviousHighLevelMarker, tr("Jump to Previo&us Section"));
    controls->addSeparator();
    add(controls, C::DropGenericMarker, tr("Drop &Generic Marker"));
    add(controls, C::DropChorusMarker, tr("Drop &Chorus Marker"));
    add(controls, C::DropVerseMarker, tr("Drop &Verse Marker"));
    add(controls, C::DropBridgeMarker, tr("Drop Bridge Mar&ker"));
    controls->addSeparator();
    add(controls, C::IncreaseSpeed, tr("&Increase Speed"));
    add(controls, C::DecreaseSpeed, tr("Decre&ase Speed"));
    add(controls, C::IncreasePitch, tr("Increase Pitc&h"));
    add(controls, C::DecreasePitch, tr("&Decrease Pitch"));
    add(controls, C::IncreasePitchFinely, tr("Increase Pitch Finel&y"));
    add(controls, C::DecreasePitchFinely, tr("D&ecrease Pitch Finely"));
    add(controls, C::IncreasePitchByOneOctave, tr("Increase Pitch by One &Octave"));
    add(controls, C::DecreasePitchByOneOctave, tr("Decrease Pitch by One Octave"));
    add(controls, C::ResetPitch, tr("Rese&t Pitch"));

    QMenu* view = menuBar()->addMenu(tr("&View"));
    // Ctrl+= too: Ctrl++ needs Shift on most keyboards.
    QList<QKeySequence> zoomInKeys = QKeySequence::keyBindings(QKeySequence::ZoomIn);
    if (!zoomInKeys.contains(QKeySequence(Qt::CTRL | Qt::Key_Equal)))
        zoomInKeys.append(QKeySequence(Qt::CTRL | Qt::Key_Equal));
    add(view, C::ZoomIn, tr("Zoom &In"))->setShortcuts(zoomInKeys);
    add(view, C::ZoomOut, tr("Zoom &Out"), QKeySequence::ZoomOut);
    add(view, C::ZoomToFitLoop, tr("Zoom to &Fit Loop"));
    view->addSeparator();
    mShowEffectsAction = view->addAction(tr("Show &Effects"), this, [this] {
        mDocument->setEffectsVisible(!mDocument->effectsVisible());
    });

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("Send &Feedback…"), this, [this] {
        if (mServices.sendFeedback)
            mServices.sendFeedback();
    });
    help->addAction(tr("&About Tesk"), this, [this] {
        if (mServices.showAbout)
            mServices.showAbout();
    });
    for (QMenu* menu : {file, edit, controls, view})
        connect(menu, &QMenu::aboutToShow, this, &TeskDocumentWindowController::validateMenuItems);
    // After the menu is gone, and after whatever the menu bar does with the focus then.
    for (QMenu* menu : {file, edit, controls, view, help})
        connect(menu, &QMenu::aboutToHide, this, &TeskDocumentWindowController::menuClosed,
                Qt::QueuedConnection);
}

void TeskDocumentWindowController::menuClosed() {
    if (QApplication::activePopupWidget() != nullptr)
        return; // another menu of the bar took its place
    if (!std::exchange(mMenuOpenedByMouse, false))
        return; // opened from the keyboard: Escape goes back to the bar, for the arrows
    // The menu bar keeps the keys after Escape, where a marker's letter opens the menu it names;
    // a command chosen may have opened a window of its own, which keeps them.
    QWidget* focus = QApplication::focusWidget();
    if (focus != menuBar() && focus != nullptr)
        return;
    if (QWidget* view = mViews ? static_cast<QWidget*>(mViews->waveformView()) : centralWidget())
        view->setFocus(Qt::PopupFocusReason);
}

void TeskDocumentWindowController::takeKeysBackFromMenuBar() {
    if (QApplication::activePopupWidget() != nullptr || menuBar()->activeAction() != nullptr)
        return; // a menu is open, or the bar is still being moved along
    QWidget* focus = QApplication::focusWidget();
    if (focus != menuBar() && focus != nullptr)
        return;
    if (QWidget* view = mViews ? static_cast<QWidget*>(mViews->waveformView()) : centralWidget())
        view->setFocus(Qt::MenuBarFocusReason);
}

void TeskDocumentWindowController::placeWindow() {
    if (isEmptyWindow()) {
        const QByteArray saved = QSettings().value(kUntitledFrameKey).toByteArray();
        if (saved.isEmpty() || !restoreGeometry(saved)) {
            if (const QScreen* screen = QGuiApplication::primaryScreen())
                move(screen->availableGeometry().center() - rect().center());
        }
        return;
    }
    setMinimumWidth(860);
    setMaximumWidth(8192);
    // Only the width is the user's to choose; the height is the content's.
    setFixedHeight(sizeHint().height());
    const QRectF frame = mDocument->documentWindowFrame();
    // A frame saved partly off the screen comes back whole; one on a screen that is not there
    // now would open the window out of sight, and is cascaded instead.
    QList<QRect> screens;
    for (const QScreen* screen : QGuiApplication::screens())
        screens.append(screen->availableGeometry());
    const QSize savedSize(std::max(int(frame.width()), minimumWidth()), sizeHint().height());
    const std::optional<QPoint> restored =
        WindowRules::restoredWindowPlace(frame, savedSize, screens);
    // A window never opens right over another: a copy of a practice saved at the same place,
    // or a song whose cascade comes round to where a saved practice stands.
    QList<QPoint> taken;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget != this && widget->isVisible() &&
            qobject_cast<TeskDocumentWindowController*>(widget) != nullptr)
            taken.append(widget->pos());
    }
    if (!restored) {
        resize(std::max(960, minimumWidth()), sizeHint().height());
        const QPointF next =
            mServices.documents ? mServices.documents->nextDocumentWindowPoint() : QPointF();
        // The first window on the main screen; the next on the screen of the one before.
        const QScreen* screen = next.isNull() ? nullptr : QGuiApplication::screenAt(next.toPoint());
        if (screen == nullptr)
            screen = QGuiApplication::primaryScreen();
        const QSize outside = frameGeometry().size().expandedTo(size());
        const QPoint place =
            screen ? WindowRules::placeClearOf(WindowRules::cascadedWindowPlace(
                                                   next, outside, screen->availableGeometry()),
                                               outside, taken, screen->availableGeometry())
                   : next.toPoint();
        move(place);
        if (mServices.documents)
            mServices.documents->setNextDocumentWindowPoint(
                QPointF(place + QPoint(WindowRules::kCascadeStep, WindowRules::kCascadeStep)));
    } else {
        const QScreen* screen = QGuiApplication::screenAt(*restored);
        resize(savedSize);
        move(screen
                 ? WindowRules::placeClearOf(*restored, frameGeometry().size().expandedTo(size()),
                                             taken, screen->availableGeometry())
                 : *restored);
    }
}

// --- Commands -------------------------------------------------------------------------------

WindowCommandState TeskDocumentWindowController::commandState() const {
    WindowCommandState state;
    // A song found where it was, and one that plays: a file that does not decode is no song.
    state.hasSong =
        mDocument->player() != nullptr && !mDocument->audioFileURL().isEmpty() && mViews != nullptr;
    state.playing = mDocument->isFilePlaying();
    state.loopEnabled = mDocument->loopRange().length > 0;
    state.zoomLevel = mDocument->zoomLevel();
    if (mViews) {
        state.canIncreaseSpeed = mViews->canIncreaseSpeed();
        state.canDecreaseSpeed = mViews->canDecreaseSpeed();
        state.canIncreasePitch = mViews->canIncreasePitch();
        state.canDecreasePitch = mViews->canDecreasePitch();
    }
    return state;
}

QAction* TeskDocumentWindowController::action(WindowCommand command) const {
    const auto found = mActions.find(command);
    return found == mActions.end() ? nullptr : found->second;
}

void TeskDocumentWindowController::validateMenuItems() {
    const WindowCommandState state = commandState();
    for (const auto& [command, item] : mActions)
        item->setEnabled(WindowRules::isEnabled(command, state));
    if (QAction* play = action(WindowCommand::PlayPause))
        play->setText(titleWithKeyHint(mDocument->isFilePlaying() ? tr("&Pause") : tr("&Play"),
                                       WindowCommand::PlayPause));
    if (mShowEffectsAction)
        mShowEffectsAction->setEnabled(state.hasSong || mDocument->effectsVisible());
    refreshSongProblem();
}

void TeskDocumentWindowController::perform(WindowCommand command) {
    using C = WindowCommand;
    if (!WindowRules::isEnabled(command, commandState()))
        return;
    switch (command) {
    case C::PlayPause:
        handlePlayPauseButton();
        break;
    case C::Loop:
        handleLoopButton();
        break;
    case C::ZoomIn:
        mDocument->setZoomLevel(WindowRules::zoomedIn(mDocument->zoomLevel()));
        break;
    case C::ZoomOut:
        mDocument->setZoomLevel(WindowRules::zoomedOut(mDocument->zoomLevel()));
        break;
    case C::DropGenericMarker:
        mDocument->dropGenericMarker();
        break;
    case C::DropChorusMarker:
        mDocument->dropChorusMarker();
        break;
    case C::DropVerseMarker:
        mDocument->dropVerseMarker();
        break;
    case C::DropBridgeMarker:
        mDocument->dropBridgeMarker();
        break;
    case C::ExportSong:
        doExportSongUsingLoop(false);
        break;
    case C::ExportLoop:
        doExportSongUsingLoop(true);
        break;
    case C::Save:
        save(false);
        break;
    case C::SaveAs:
        save(true);
        break;
    default:
        mViews->perform(command);
        break;
    }
    validateMenuItems();
}

void TeskDocumentWindowController::handlePlayPauseButton() {
    if (mDocument->isFilePlaying()) {
        mDocument->stopFilePlaying();
        return;
    }
    if (!mDocument->player())
        return;
    const qint64 current = mDocument->currentFrame();
    const qint64 from = WindowRules::playStartFrame(current, mDocument->player()->totalFrames(),
                                                    mDocument->playbackSpeed() < 0.0);
    if (from != current)
        mDocument->setCurrentFrame(from);
    mDocument->startFilePlaying();
}

void TeskDocumentWindowController::handleLoopButton() {
    // The button stops a looping playback; a plain one goes on into the loop without a stop,
    // whose restart of the sound would leave a gap.
    if (mDocument->isFilePlaying() && mDocument->isLooping()) {
        mDocument->stopFilePlaying();
        return;
    }
    mDocument->startFileLooping();
}

bool TeskDocumentWindowController::eventFilter(QObject* watched, QEvent* event) {
    // Every key typed in this window reaches the window's commands, whichever view has focus,
    // except Tab, which moves the focus, and keys for the controls that need them: text
    // fields, pop-ups, the menu bar (which keeps the keys after Escape closes a menu opened
    // from the keyboard; see menuClosed), and the zoom and volume sliders and the effects
    // panel's switches, editors and pan slider, which only Tab gives the focus to.
    // Escape there gives the keys back to the window.
    if (event->type() == QEvent::MouseButtonPress && watched == menuBar())
        mMenuOpenedByMouse = true;
    if (event->type() == QEvent::KeyRelease) {
        const auto* released = static_cast<QKeyEvent*>(event);
        mLastKeyRelease = {released->key(), released->timestamp()};
        return false;
    }
    if (event->type() != QEvent::KeyPress || mClosed)
        return false;
    auto* widget = qobject_cast<QWidget*>(watched);
    auto* key = static_cast<QKeyEvent*>(event);
    if (widget == nullptr || widget->window() != this || key->key() == Qt::Key_Tab ||
        key->key() == Qt::Key_Backtab)
        return false;
    // Escape in the middle of a drag belongs to the view dragged in, which puts back what the
    // drag changed; it must not clear the loop as well.
    const bool dragging =
        QGuiApplication::mouseButtons() != Qt::NoButton || QWidget::keyboardGrabber() != nullptr;
    if (key->key() == Qt::Key_Escape && dragging)
        return false;
    // F10 opens the first menu, as it does in the desktop's other applications; the arrows go on
    // from there.
    if (key->key() == Qt::Key_F10 && key->modifiers() == Qt::NoModifier && !dragging &&
        menuBar()->isVisible() && !menuBar()->actions().isEmpty()) {
        mMenuOpenedByMouse = false;
        menuBar()->setActiveAction(menuBar()->actions().constFirst());
        return true;
    }
    if (widget == menuBar()) {
        // Escape out of the bar ends its keyboard mode; where the bar entered it from another
        // menu's Alt key, it gives the keys to nobody, or keeps them, and a marker's letter
        // would open the menu it names from then on.
        if (key->key() == Qt::Key_Escape) {
            QMetaObject::invokeMethod(this, &TeskDocumentWindowController::takeKeysBackFromMenuBar,
                                      Qt::QueuedConnection);
            return false;
        }
        if (menuBar()->activeAction() != nullptr)
            return false;
        // Nor does the bar get the key then, where the window has no use for it.
        takeKeysBackFromMenuBar();
        handleKey(key);
        return true;
    }
    if (qobject_cast<QLineEdit*>(widget))
        return false;
    const bool panelControl =
        qobject_cast<QComboBox*>(widget) || qobject_cast<QAbstractButton*>(widget) ||
        qobject_cast<TeskPanSlider*>(widget) || qobject_cast<TeskEQSettingsView*>(widget) ||
        qobject_cast<TeskVocalRemovalSettingsView*>(widget) ||
        qobject_cast<KLTexturedSlider*>(widget);
    // A preset menu would take a marker's letter as a search and pick a preset with it.
    const bool letterForWindow = qobject_cast<QComboBox*>(widget) && !key->text().isEmpty() &&
                                 key->text().at(0).isLetterOrNumber() &&
                                 !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier));
    // A switch or button takes only the keys that press it: with the arrows it would move the
    // focus on, out of the panel to a slider the next arrow then moves.
    const bool keyForWindow = qobject_cast<QAbstractButton*>(widget) &&
                              key->key() != Qt::Key_Space && key->key() != Qt::Key_Return &&
                              key->key() != Qt::Key_Enter && key->key() != Qt::Key_Escape;
    if (panelControl && widget->isVisible() && !letterForWindow && !keyForWindow) {
        if (key->key() != Qt::Key_Escape)
            return false;
        if (mViews)
            mViews->waveformView()->setFocus();
        else
            widget->clearFocus();
        return true;
    }
    return handleKey(key);
}

bool TeskDocumentWindowController::isHeldKey(const QKeyEvent* event) const {
    // The X server repeats a held key as a release and a press at the same instant. Qt tells
    // them apart by looking for the press when the release arrives, which misses it when the
    // press has not been read yet (an idle Tesk reads at once): a marker key held would drop
    // and take away its marker over and over. No hand releases and presses a key within the
    // same millisecond.
    return event->isAutoRepeat() ||
           (event->timestamp() != 0 && event->key() == mLastKeyRelease.key &&
            event->timestamp() == mLastKeyRelease.timestamp);
}

bool TeskDocumentWindowController::handleKey(QKeyEvent* event) {
    const WindowCommandState state = commandState();
    if (!state.hasSong && !state.playing) {
        refreshSongProblem(); // a song gone since its window opened says so
        return false;
    }
    const WindowCommand command = WindowRules::commandForKey(
        event->key(), event->modifiers(), event->text(), event->nativeScanCode());
    if (command != WindowCommand::None &&
        (!isHeldKey(event) || WindowRules::repeatsWhileHeld(command)))
        perform(command);
    return true; // keys are consumed here, never passed on
}

void TeskDocumentWindowController::wheelEvent(QWheelEvent* event) {
    const double delta = event->angleDelta().y() / 120.0;
    if (delta != 0.0 && commandState().hasSong)
        mDocument->offsetCurrentFrame(WindowRules::wheelFrameOffset(delta));
    event->accept();
}

// --- Playback display -----------------------------------------------------------------------

void TeskDocumentWindowController::documentDidBeginPlayingAudio(TeskDocument*) {
    mPlaying = true;
    updateDisplayTimers();
    if (mViews)
        mViews->playingChanged(true, mDocument->isLooping());
    showSoundNotice();
    updateButtonImages();
    validateMenuItems();
}

void TeskDocumentWindowController::documentDidStopPlayingAudio(TeskDocument*) {
    if (mViews)
        mViews->playingChanged(false, false);
    mPlaying = false;
    updateDisplayTimers();
    updateButtonImages();
    validateMenuItems();
}

void TeskDocumentWindowController::updateDisplayTimers() {
    // A minimised or hidden window shows nothing, so its timers would only keep the machine
    // awake through hours of practice; it catches up with the song when it shows again.
    const bool run = mPlaying && isVisible() && !isMinimized();
    if (run == mHUDTimer.isActive())
        return;
    if (!run) {
        mHUDTimer.stop();
        mWaveformTimer.stop();
        return;
    }
    if (const QScreen* screen = this->screen(); screen && screen->refreshRate() > 1.0)
        mWaveformTimer.setInterval(int(std::floor(1000.0 / screen->refreshRate())));
    mHUDTimer.start();
    mWaveformTimer.start();
    updateHUD();
    updateWaveform();
}

void TeskDocumentWindowController::showSoundNotice() {
    const TeskOutputAudioUnit* output =
        mDocument->player() ? mDocument->player()->outputAudioUnit() : nullptr;
    if (!output)
        return;
    // Not a dialog: the musician can still watch the song play, only without sound.
    mSoundNotice = output->hasSoundOutput() ? QString()
                                            : tr("<b>No sound.</b> %1 Tesk plays on silently.")
                                                  .arg(output->noSoundReason().toHtmlEscaped());
    showNotices();
}

void TeskDocumentWindowController::waveformViewDidReadWholeSong(WaveformView*) {
    const std::optional<TeskError> damage = mDocument->songDamage();
    if (!damage)
        return;
    mDamageNotice = QStringLiteral("<b>%1</b> %2")
                        .arg(wrappableText(damage->localizedDescription()).toHtmlEscaped(),
                             wrappableText(damage->localizedRecoverySuggestion()).toHtmlEscaped());
    showNotices();
}

void TeskDocumentWindowController::showNotices() {
    // A missing song is all there is to tell; a silent device and a damaged song are both told.
    if (!mNoticeLabel || mShowingSongProblem)
        return;
    QStringList notices;
    for (const QString* notice : {&mSoundNotice, &mDamageNotice}) {
        if (!notice->isEmpty())
            notices.append(*notice);
    }
    mNoticeLabel->setText(notices.join(QStringLiteral("<br>")));
    mNoticeLabel->setVisible(!notices.isEmpty());
}

void TeskDocumentWindowController::updateHUD() {
    if (mViews)
        mViews->updateHUD();
}

void TeskDocumentWindowController::updateWaveform() {
    if (mViews)
        mViews->updatePlayHead();
}

void TeskDocumentWindowController::waveformViewDidBeginScrubbing(WaveformView*) {
    // While the play head is dragged the song sounds, but buttons and timers stay as they are.
    mDocument->setPlaybackDelegate(nullptr);
    mDocument->startFilePlaying();
}

void TeskDocumentWindowController::waveformViewDidEndScrubbing(WaveformView* view) {
    // The play head stays where it was let go, not where the sound had got to while it was held.
    const qint64 letGo = view->currentFrame();
    mDocument->setPlaybackDelegate(this);
    mDocument->stopFilePlaying();
    mDocument->setCurrentFrame(letGo);
}

void TeskDocumentWindowController::waveformViewDidBeginEditingLoop(WaveformView*) {
    // Every value the drag writes becomes one undo step back to the loop before it.
    mEditingLoop = true;
    mDocument->beginLoopEdit();
}

void TeskDocumentWindowController::waveformViewDidEndEditingLoop(WaveformView*) {
    if (mEditingLoop) {
        mEditingLoop = false;
        mDocument->endLoopEdit();
    }
    validateMenuItems();
}

void TeskDocumentWindowController::documentDidImportMetadata(TeskDocument*) {
    if (!mMetadataView)
        return;
    mMetadataView->setAlbumArt(mDocument->songAlbumArt());
    mMetadataView->setTitle(mDocument->songTitle());
    mMetadataView->setArtist(mDocument->songArtist());
    mMetadataView->setAlbum(mDocument->songAlbum());
}

void TeskDocumentWindowController::updateButtonImages() {
    if (!mPlayPauseButton)
        return;
    const bool active = isActiveWindow();
    const qreal ratio = devicePixelRatioF();
    const bool playing = mDocument->isFilePlaying();
    const QString play = playing ? QStringLiteral("Pause") : QStringLiteral("Play");
    const auto set = [&](PressedImageButton* button, const QString& name) {
        if (active)
            button->setImages(buttonIcon(name + QStringLiteral("N"), ratio),
                              buttonIcon(name + QStringLiteral("P"), ratio));
        else
            button->setImages(buttonIcon(name + QStringLiteral("Inactive"), ratio), {});
    };
    set(mPlayPauseButton, play);
    const QString name = playing ? tr("Pause") : tr("Play");
    mPlayPauseButton->setToolTip(tipWithKey(name, WindowCommand::PlayPause));
    mPlayPauseButton->setAccessibleName(name);
    set(mRewindButton, QStringLiteral("Rewind"));
    set(mFastForwardButton, QStringLiteral("FastForward"));
    set(mMarkButton, QStringLiteral("SegmentedControlMark"));
}

bool TeskDocumentWindowController::event(QEvent* event) {
    const bool handled = QMainWindow::event(event);
    // Only the width is the user's: the height follows the content (a notice shown or gone, the
    // effects panel) each time it is measured again.
    if (event->type() == QEvent::LayoutRequest && mViews)
        setFixedHeight(sizeHint().height());
    return handled;
}

void TeskDocumentWindowController::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange)
        updateButtonImages();
    if (event->type() == QEvent::WindowStateChange)
        updateDisplayTimers();
    QMainWindow::changeEvent(event);
}

void TeskDocumentWindowController::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    updateDisplayTimers();
}

void TeskDocumentWindowController::hideEvent(QHideEvent* event) {
    QMainWindow::hideEvent(event);
    updateDisplayTimers();
}

// --- Export ---------------------------------------------------------------------------------

void TeskDocumentWindowController::doExportSongUsingLoop(bool loop) {
    mExportingWithLoop = loop;
    const QString source = mDocument->fileURL().isEmpty() ? mDocument->audioFileURL().toLocalFile()
                                                          : mDocument->fileURL().toLocalFile();
    // In the folder of the practice or the song, not wherever Tesk happened to be started.
    const QFileInfo sourceFile(source);
    const QDir folder(sourceFile.absolutePath());
    // Without a sound file's extension left in the name ("take.wav" of "take.wav.m4a"), which
    // the format's would replace: the name proposed is the one written.
    QString proposed =
        WindowRules::withoutSoundExtension(folder.filePath(sourceFile.completeBaseName()));
    // An M4A or AIFF song would be proposed as itself, which the export refuses to write over.
    const auto isTheSong = [this, &proposed](int formatIndex) {
        return mDocument->isSongAt(WindowRules::exportPath(proposed, formatIndex));
    };
    if (isTheSong(0) || isTheSong(1))
        proposed = folder.filePath(
            (loop ? tr("%1 (Loop)") : tr("%1 (Export)")).arg(QFileInfo(proposed).fileName()));
    const auto chosen = [this](const QString& path, int formatIndex) {
        const QString destination = WindowRules::exportPath(path, formatIndex);
        if (destination.isEmpty()) {
            qWarning("Got an unexpected file format from the popup.");
            return;
        }
        // After the dialog has gone, which asks about nothing: the name it returns may still
        // change (the format's extension, a suffix a system dialog adds), so the question is
        // about the file that will be written.
        QTimer::singleShot(0, this, [this, destination] {
            if (refuseExportOverSong(destination) || refuseFileOpenElsewhere(destination))
                return;
            if (!QFileInfo::exists(destination) || askReplaceFile(destination))
                startLoopExportWithFile(destination);
        });
    };
    if (mServices.askExportFile)
        mServices.askExportFile(this, loop ? tr("Export Loop") : tr("Export Song"), proposed,
                                chosen);
}

bool TeskDocumentWindowController::askReplaceFile(const QString& path) {
    if (mServices.askReplaceFile)
        return mServices.askReplaceFile(this, path);
    return askYesOrCancel(
        tr("Replace file?"),
        tr("“%1” already exists. Do you want to replace it?").arg(QFileInfo(path).fileName()));
}

bool TeskDocumentWindowController::refuseExportOverSong(const QString& path) {
    // Written over, the song would no longer be the music its markers and loop were placed in,
    // and the original would be gone.
    if (!mDocument->isSongAt(path))
        return false;
    presentMessage(tr("“%1” is the song you are practising. Choose another name for the export.")
                       .arg(QFileInfo(path).fileName()));
    return true;
}

bool TeskDocumentWindowController::refuseFileOpenElsewhere(const QString& path) {
    if (!mServices.documents || !mServices.documents->documentForPath(path, mDocument))
        return false;
    presentMessage(tr("“%1” is open in another window. Close it there, or choose another name.")
                       .arg(QFileInfo(path).fileName()));
    return true;
}

bool TeskDocumentWindowController::askStopExport() {
    if (mServices.askStopExport)
        return mServices.askStopExport(this, mExportName);
    return askYesOrCancel(
        tr("Stop export?"),
        tr("“%1” is still being exported. Do you want to stop the export and close the window?")
            .arg(mExportName));
}

bool TeskDocumentWindowController::askReplaceChangedFile(const QString& path) {
    if (mServices.askReplaceFile)
        return mServices.askReplaceFile(this, path);
    return askYesOrCancel(tr("Replace file?"),
                          tr("“%1” has been changed by another program since it was opened "
                             "or saved here. Do you want to replace it with the practice in "
                             "this window?")
                              .arg(QFileInfo(path).fileName()));
}

bool TeskDocumentWindowController::askYesOrCancel(const QString& title, const QString& question) {
    QMessageBox box(QMessageBox::Question, title, wrappableText(question),
                    QMessageBox::Yes | QMessageBox::Cancel, this);
    box.setTextFormat(Qt::PlainText); // a file's name is never markup
    box.setDefaultButton(QMessageBox::Cancel);
    return box.exec() == QMessageBox::Yes;
}

void TeskDocumentWindowController::startLoopExportWithFile(const QString& path) {
    if (mDocument->isFilePlaying())
        mDocument->stopFilePlaying();
    mExportName = QFileInfo(path).fileName();
    // Made without a button of its own: a second one would add a second Escape shortcut, and
    // two cancel each other out.
    mExportProgress =
        new QProgressDialog(tr("Exporting “%1”…").arg(mExportName), QString(), 0, 1000, this);
    mExportProgress->setWindowModality(Qt::WindowModal);
    // Cancel takes a click or Escape: Space, the key that plays, and a Return held from the
    // save dialog would otherwise stop a long export by chance.
    auto* cancel = new QPushButton(tr("Cancel"), mExportProgress);
    cancel->setFocusPolicy(Qt::NoFocus);
    cancel->setAutoDefault(false);
    mExportProgress->setCancelButton(cancel);
    mExportProgress->setAutoClose(false);
    mExportProgress->setAutoReset(false);
    mExportProgress->setMinimumDuration(0);
    mExportProgress->setValue(0);
    connect(mExportProgress, &QProgressDialog::canceled, mDocument,
            &TeskDocument::cancelFileExportOperation);
    // The progress holds the window's keys, the menu bar's among them: with this window the
    // only one, the Quit key would go nowhere. It asks to stop the export, as from elsewhere.
    auto* quit = new QAction(mExportProgress);
    quit->setShortcuts(quitKeys());
    connect(quit, &QAction::triggered, this, &TeskDocumentWindowController::quit);
    mExportProgress->addAction(quit);
    mExportProgress->show();
    mDocument->setFileExportDelegate(this);
    const QVariantMap options{{QStringLiteral("exportingWithLoop"), mExportingWithLoop},
                              {QStringLiteral("destinationFile"), path}};
    if (!mDocument->performLoopExportToFile(options)) {
        mExportProgress->deleteLater();
        mDocument->setFileExportDelegate(nullptr);
    }
}

void TeskDocumentWindowController::quit() {
    if (mServices.quit)
        mServices.quit();
}

void TeskDocumentWindowController::updateFileExportWithProgress(double progress) {
    // After a cancel the dialog has hidden itself; a new value would show it again until the
    // export has stopped.
    if (mExportProgress && !mExportProgress->wasCanceled())
        mExportProgress->setValue(int(std::lround(progress * 1000.0)));
}

void TeskDocumentWindowController::fileDidFinishExporting(const QString&) {
    if (mExportProgress) {
        mExportProgress->hide();
        mExportProgress->deleteLater();
    }
    mDocument->setFileExportDelegate(nullptr);
}

void TeskDocumentWindowController::fileExportDidFail(const QString& path, const TeskError& error) {
    fileDidFinishExporting(path);
    auto* box = new QMessageBox(QMessageBox::Warning, tr("The export failed"),
                                error.localizedDescription(), QMessageBox::Ok, this);
    box->setInformativeText(error.localizedRecoverySuggestion());
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
}

// --- Saving and closing ---------------------------------------------------------------------

QString TeskDocumentWindowController::askDocumentPath(const QString& proposed) {
    QFileDialog dialog(this, tr("Save Practice Document"), proposed, tr("Tesk document (*.tesk)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    // The dialog adds the extension only to a name without a dot ("Solo 1.5x" stays as it is),
    // so the window asks about the file that will be written, once the name is final.
    dialog.setDefaultSuffix(QStringLiteral("tesk"));
    dialog.setOption(QFileDialog::DontConfirmOverwrite);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return dialog.selectedFiles().first();
}

QString TeskDocumentWindowController::proposedDocumentPath() const {
    if (!mDocument->fileURL().isEmpty())
        return mDocument->fileURL().toLocalFile(); // a saved practice under its own name
    // Beside the song, where it was last seen if it has gone since.
    const auto reference = mDocument->audioFileAlias();
    const QString found = mDocument->audioFileURL().toLocalFile();
    const QString song = !found.isEmpty() || !reference ? found : reference->absolutePath();
    return QFileInfo(song).path() + QLatin1Char('/') + QFileInfo(song).completeBaseName() +
           QStringLiteral(".tesk");
}

void TeskDocumentWindowController::save(bool askForName) {
    QUrl url = mDocument->fileURL();
    if (askForName || url.isEmpty()) {
        QString proposed = proposedDocumentPath();
        for (;;) {
            const QString path = mServices.askDocumentFile
                                     ? mServices.askDocumentFile(this, proposed)
                                     : askDocumentPath(proposed);
            if (path.isEmpty())
                return;
            const QString destination = WindowRules::documentPath(path);
            if (refuseFileOpenElsewhere(destination))
                return;
            const bool itself =
                QFileInfo(destination) == QFileInfo(mDocument->fileURL().toLocalFile());
            // Not replaced: the dialog comes back at that name, for another one.
            if (QFileInfo::exists(destination) && !itself && !askReplaceFile(destination)) {
                proposed = destination;
                continue;
            }
            url = QUrl::fromLocalFile(destination);
            break;
        }
    }
    // Written by someone else since: saving here would undo their changes unasked.
    const QString path = url.toLocalFile();
    if (QFileInfo(path) == QFileInfo(mDocument->fileURL().toLocalFile()) &&
        mDocument->fileChangedElsewhere() && !askReplaceChangedFile(path))
        return;
    TeskError error;
    if (!mDocument->saveToURL(url, &error)) {
        presentError(error);
        return;
    }
    // Open Recent then brings back the practice, not the bare song it was made from.
    if (mServices.documents)
        mServices.documents->noteNewRecentDocumentURL(url);
    synchronizeWindowTitleWithDocumentName();
}

void TeskDocumentWindowController::closeEvent(QCloseEvent* event) {
    if (mClosed) {
        event->accept();
        return;
    }
    // Its progress shows only in this window: closing it (Quit from another window does) would
    // stop the export out of sight. The export stops only once the window is sure to close.
    if (mDocument->isExporting() && mExportProgress && !askStopExport()) {
        event->ignore();
        return;
    }
    if (hasChangesToAskAbout() && !mDiscardingChanges) {
        // Quitting asks window by window: the one asked about comes forward, so the answer is
        // given with its practice in sight. A practice whose song has gone is named by its own
        // name, not by the bare "Tesk" its title then shows.
        showWindow();
        const QString name = mDocument->practiceName();
        const int answer =
            mServices.askSaveChanges ? mServices.askSaveChanges(this, name) : askSaveChanges(name);
        // Only Discard throws the changes away: a box closed without an answer keeps them.
        if (answer != QMessageBox::Save && answer != QMessageBox::Discard) {
            event->ignore();
            return;
        }
        if (answer == QMessageBox::Save) {
            save(false);
            if (mDocument->isDocumentEdited()) {
                event->ignore();
                return;
            }
        }
    }
    if (isEmptyWindow())
        QSettings().setValue(kUntitledFrameKey, saveGeometry());
    event->accept();
    if (mServices.documents)
        mServices.documents->closeDocument(mDocument); // calls closeWithoutAsking through
                                                       // the window layer
    else
        closeWithoutAsking();
}

int TeskDocumentWindowController::askSaveChanges(const QString& name) {
    // A song opened and never saved counts as a practice not yet kept, touched or not: the
    // question speaks of keeping it rather than of changes the musician may not have made.
    const bool everSaved = !mDocument->fileURL().isEmpty();
    QMessageBox question(
        QMessageBox::Question, everSaved ? tr("Save changes?") : tr("Save practice?"),
        wrappableText(everSaved ? tr("Do you want to save the changes you made to “%1”?").arg(name)
                                : tr("Do you want to save a practice for “%1”?").arg(name)),
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    question.setTextFormat(Qt::PlainText);
    // Each answer has a letter of its own, as the quit question's have.
    question.button(QMessageBox::Save)->setText(tr("&Save"));
    question.button(QMessageBox::Discard)->setText(tr("&Discard"));
    if (!everSaved)
        question.setInformativeText(
            tr("A practice keeps the song’s speed, pitch, loop, markers and effects."));
    return question.exec();
}

bool TeskDocumentWindowController::isEmptyWindow() const {
    return mDocument->isBlank();
}

bool TeskDocumentWindowController::hasChangesToAskAbout() const {
    // A song's document is asked about even when the song has gone since, or its reference
    // to the song could not be read: its markers and loop are the musician's work. The empty
    // window has nothing to save.
    return mDocument->isDocumentEdited() && !isEmptyWindow();
}

bool TeskDocumentWindowController::closeDiscardingChanges() {
    mDiscardingChanges = true;
    const bool closed = close();
    mDiscardingChanges = false;
    return closed;
}

void TeskDocumentWindowController::closeWithoutAsking() {
    if (mClosed)
        return;
    mClosed = true;
    if (mDocument->isFilePlaying())
        mDocument->stopFilePlaying();
    mPlaying = false;
    updateDisplayTimers();
    if (mDocument->playbackDelegate() == this)
        mDocument->setPlaybackDelegate(nullptr);
    if (mDocument->metadataDelegate() == this)
        mDocument->setMetadataDelegate(nullptr);
    if (mDocument->isExporting())
        mDocument->cancelFileExportOperation();
    if (mExportProgress) {
        mExportProgress->hide();
        mExportProgress->deleteLater();
    }
    if (mDocument->fileExportDelegate() == this)
        mDocument->setFileExportDelegate(nullptr);
    disconnect(mDocument, nullptr, this, nullptr);
    if (mEditingLoop)
        waveformViewDidEndEditingLoop(nullptr);
    unbindViews();
    mDocument->removeWindowController(this);
    hide();
}

// --- The window -----------------------------------------------------------------------------

void TeskDocumentWindowController::showWindow() {
    show();
    raise();
    activateWindow();
}

void TeskDocumentWindowController::synchronizeWindowTitleWithDocumentName() {
    // "[*]" is where the title marks unsaved changes.
    setWindowTitle(mDocument->displayName() + QStringLiteral("[*]"));
    setWindowModified(mDocument->isDocumentEdited());
    setWindowFilePath(mDocument->fileURL().toLocalFile());
}

QRectF TeskDocumentWindowController::windowFrame() const {
    // Where the frame's corner is (as move() takes it back) and the size of the inside (as
    // resize() does), so that a window reopens exactly where it was.
    return QRectF(pos(), size());
}

// --- A song that could not be opened --------------------------------------------------------

void TeskDocumentWindowController::refreshSongProblem() {
    // A song can go while its window is open (a disk taken away), and come back.
    const bool problem = mDocument->songError().has_value();
    if (problem && !mShowingSongProblem) {
        showSongProblem();
    } else if (!problem && mShowingSongProblem) {
        mShowingSongProblem = false;
        showNotices();
    }
}

void TeskDocumentWindowController::showSongProblem() {
    const std::optional<TeskError> error = mDocument->songError();
    if (!error || !mNoticeLabel)
        return;
    mShowingSongProblem = true;
    mNoticeLabel->setText(
        QStringLiteral("<b>%1</b> %2 <a href=\"locate\">%3</a>")
            .arg(wrappableText(error->localizedDescription()).toHtmlEscaped(),
                 wrappableText(error->localizedRecoverySuggestion()).toHtmlEscaped(),
                 tr("Locate…")));
    mNoticeLabel->setTextInteractionFlags(Qt::LinksAccessibleByMouse |
                                          Qt::LinksAccessibleByKeyboard);
    connect(mNoticeLabel, &QLabel::linkActivated, this, &TeskDocumentWindowController::locateSong,
            Qt::UniqueConnection);
    mNoticeLabel->setVisible(true);
}

void TeskDocumentWindowController::locateSong() {
    // The song was last seen somewhere near where it lived; one never named is looked for
    // beside its practice.
    QString startFolder;
    if (mDocument->audioFileAlias())
        startFolder = QFileInfo(mDocument->audioFileAlias()->absolutePath()).path();
    else if (mDocument->fileURL().isLocalFile())
        startFolder = QFileInfo(mDocument->fileURL().toLocalFile()).path();
    const QString path =
        mServices.askSongFile
            ? mServices.askSongFile(this, startFolder)
            : QFileDialog::getOpenFileName(this, tr("Locate the Song"), startFolder,
                                           tr("Songs (%1)").arg(songFilePatterns()));
    if (path.isEmpty())
        return;
    if (const std::optional<TeskError> error =
            mDocument->locateAudioFile(QUrl::fromLocalFile(path))) {
        presentError(*error);
        return;
    }
    // Another song: what was told of the one before no longer holds.
    mShowingSongProblem = false;
    mSoundNotice.clear();
    mDamageNotice.clear();
    showNotices();
    synchronizeWindowTitleWithDocumentName();
    validateMenuItems();
}

QString TeskDocumentWindowController::noticeText() const {
    return mNoticeLabel && !mNoticeLabel->isHidden() ? mNoticeLabel->text() : QString();
}

void TeskDocumentWindowController::presentError(const TeskError& error) {
    // A general error ("Bad Audio File") keeps its cause, which names the file and says why: it
    // is there for whoever asks for the details (a drop of several files tells which one).
    QString details;
    const QVariant cause = error.userInfo().value(UnderlyingErrorKey);
    if (cause.canConvert<TeskError>()) {
        const TeskError underlying = cause.value<TeskError>();
        details = QStringLiteral("%1 %2").arg(underlying.localizedDescription(),
                                              underlying.localizedRecoverySuggestion());
    }
    presentMessage(error.localizedDescription(), error.localizedRecoverySuggestion(),
                   details.trimmed());
}

void TeskDocumentWindowController::presentMessage(const QString& text, const QString& more,
                                                  const QString& details) {
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Tesk"), wrappableText(text),
                                QMessageBox::Ok, this);
    box->setTextFormat(Qt::PlainText);
    box->setInformativeText(wrappableText(more));
    box->setDetailedText(details);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

} // namespace tesk
