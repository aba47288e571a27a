#include "window/SongViews.h"

#include "document/TeskDocument.h"

#include <QWidget>

namespace tesk {

SongViews::SongViews(TeskDocument* document, QWidget* parent)
    : QObject(parent)
    , mDocument(document) {
    mTransportPanel = new QWidget(parent);
    mTransportPanel->setFixedSize(420, 96);
    mWaveformArea = new QWidget(parent);
    mWaveformArea->setMinimumHeight(195);
    mEffectsPanel = new QWidget(parent);
    mEffectsPanel->setMinimumHeight(170);
}

SongViews::~SongViews() = default;

void SongViews::bind(QWidget*) {}
void SongViews::unbind() {}
bool SongViews::canIncreaseSpeed() const {
    return false;
}
bool SongViews::canDecreaseSpeed() const {
    return false;
}
bool SongViews::canIncreasePitch() const {
    return false;
}
bool SongViews::canDecreasePitch() const {
    return false;
}
void SongViews::perform(WindowCommand) {}
void SongViews::playingChanged(bool, bool) {}
void SongViews::updateHUD() {}
void SongViews::updatePlayHead() {}

} // namespace tesk
