#pragma once

#include <QAbstractVideoSurface>
#include <QImage>

#include <functional>

// Takes a media player's frames as images in memory, in the common raw
// formats, so that video is painted in software and no GL driver is needed.
class SoftwareVideoSurface : public QAbstractVideoSurface
{
public:
    using FrameHandler = std::function<void(const QImage &frame)>;
    explicit SoftwareVideoSurface(FrameHandler onFrame, QObject *parent = nullptr);

    QList<QVideoFrame::PixelFormat>
    supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const override;
    bool present(const QVideoFrame &frame) override;

private:
    FrameHandler m_onFrame;
};
