#pragma once

#include "platform/display_info.h"

#include <QWidget>

class QGraphicsProxyWidget;
class QGraphicsScene;
class QGraphicsView;
class QStackedLayout;

// The main window: the emulated phone screen, laid out in design pixels
// (DisplayInfo::pixelSize is its first size) and shown at DisplayInfo::zoom.
// At zoom 1 the screen widgets sit in the window directly; at any other zoom
// they live in a graphics scene scaled by the view, which keeps input and
// focus working and draws text as outlines at the final size. Resizing the
// window keeps the zoom and resizes the screen, so a wider window shows more
// design pixels; below the phone's width the zoom shrinks instead.
class PhoneWindow : public QWidget
{
    Q_OBJECT
public:
    explicit PhoneWindow(const DisplayInfo &display, QWidget *parent = nullptr);
    ~PhoneWindow() override;

    QSize designSize() const { return m_designSize; }
    // The screen's size in design pixels now.
    QSize screenSize() const;
    double zoom() const { return m_zoom; }
    // The zoom chosen at start, kept while the window is large enough.
    double baseZoom() const { return m_baseZoom; }
    bool isScaled() const { return m_view != nullptr; }

    // The design-size widget that holds the screens. Parent toasts and
    // system dialogs to it so that they appear over the phone screen.
    QWidget *screenHost() const { return m_host; }

    // Adds screen to the stack (the window takes ownership) without showing it.
    void addScreen(QWidget *screen);
    // Shows screen, adding it first when needed.
    void setScreen(QWidget *screen);
    QWidget *currentScreen() const;
    // Maps a point of the window to the phone screen's design pixels.
    QPoint mapToScreenHost(const QPoint &windowPos) const;
    QGraphicsView *graphicsView() const { return m_view; }

Q_SIGNALS:
    void currentScreenChanged(QWidget *screen);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void applyZoom(double zoom);

    QSize m_designSize;
    double m_zoom = 1.0;
    double m_baseZoom = 1.0;
    QWidget *m_host = nullptr;
    QStackedLayout *m_stack = nullptr;
    QGraphicsView *m_view = nullptr;
    QGraphicsScene *m_scene = nullptr;
    QGraphicsProxyWidget *m_proxy = nullptr;
};
