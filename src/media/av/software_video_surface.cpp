#include "media/av/software_video_surface.h"

SoftwareVideoSurface::SoftwareVideoSurface(FrameHandler onFrame, QObject *parent)
    : QAbstractVideoSurface(parent), m_onFrame(std::move(onFrame))
{
}

QList<QVideoFrame::PixelFormat>
SoftwareVideoSurface::supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const
{
    if (type != QAbstractVideoBuffer::NoHandle)
        return {};
    return {QVideoFrame::Format_RGB32,   QVideoFrame::Format_ARGB32, QVideoFrame::Format_BGR32,
            QVideoFrame::Format_YUV420P, QVideoFrame::Format_YV12,   QVideoFrame::Format_NV12,
            QVideoFrame::Format_UYVY,    QVideoFrame::Format_YUYV};
}

bool SoftwareVideoSurface::present(const QVideoFrame &frame)
{
    const QImage image = frame.image();
    if (!image.isNull() && m_onFrame)
        m_onFrame(image);
    return true;
}
