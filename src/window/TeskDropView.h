#pragma once

#include <QWidget>
#include <functional>

class QMimeData;

namespace tesk {

/// Accepts songs dropped anywhere on a document window: a file manager's or a music
/// player's URI list, each URI a track. `canOpen` says which files Tesk opens; `open` gets
/// the dropped data. Main thread.
class TeskDropAcceptor {
public:
    std::function<bool(const QUrl&)> canOpen;
    std::function<void(const QMimeData&)> open;

    /// Whether any track of the data is a file Tesk opens.
    bool holdsOpenableTrack(const QMimeData& data) const;
};

/// The window content that takes drops without looking at the files: dropping a song on a
/// song's window opens it, anything else is taken and opens nothing.
class TeskDraggableContentView : public QWidget {
    Q_OBJECT
public:
    TeskDraggableContentView(TeskDropAcceptor acceptor, QWidget* parent = nullptr);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    TeskDropAcceptor mAcceptor;
};

/// The empty window's drop target: the "Drag Song Here" picture and a line of instructions,
/// lit while a song Tesk can open hovers over it.
class TeskDropView : public QWidget {
    Q_OBJECT
public:
    TeskDropView(TeskDropAcceptor acceptor, QWidget* parent = nullptr);

    bool isActive() const { return mActive; }
    void setActive(bool active);
    QSize sizeHint() const override { return {560, 360}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    TeskDropAcceptor mAcceptor;
    bool mActive = false;
};

} // namespace tesk
