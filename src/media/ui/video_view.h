#pragma once

#include <QImage>
#include <QWidget>

class AvPlayer;
class QLabel;
class QSlider;
class QToolButton;

// A video played full size: the picture, a play/pause button, a seek bar
// and "position / duration". Frames arrive as images and are painted in
// software, so no GL is needed.
class VideoView : public QWidget
{
    Q_OBJECT
public:
    explicit VideoView(QWidget *parent = nullptr);
    ~VideoView() override;

    // Starts playing the file from its beginning.
    void open(const QString &path);
    void stop();
    void togglePlay();
    void seek(qint64 ms);
    // The play button's side and its icon's, in pixels.
    void setControlSizes(int buttonPx, int iconPx);

    QString path() const { return m_path; }
    bool isPlaying() const;
    qint64 position() const;
    qint64 duration() const;
    // The newest frame shown; null before the first.
    QImage currentFrame() const { return m_frame; }

Q_SIGNALS:
    // The file could not be played.
    void failed(const QString &message);

private:
    class Picture;
    bool ensurePlayer();
    void showFrame(const QImage &frame);
    void updateControls();

    QString m_path;
    AvPlayer *m_player = nullptr;
    Picture *m_picture = nullptr;
    QToolButton *m_play = nullptr;
    QSlider *m_seek = nullptr;
    QLabel *m_time = nullptr;
    QImage m_frame;
    bool m_seeking = false;
    bool m_atEnd = false;
};
