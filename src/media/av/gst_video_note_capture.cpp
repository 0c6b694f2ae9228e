#include "media/av/gst_video_note_capture.h"

#include "media/av/software_video_surface.h"

#include <QCamera>
#include <QCameraInfo>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMediaRecorder>
#include <QPointer>
#include <QUrl>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cmath>

namespace {

bool ensure_gstreamer(QString *error)
{
    static int state = 0; // 0 untried, 1 ready, 2 failed
    static QString failure;
    if (state == 0) {
        GError *err = nullptr;
        if (gst_init_check(nullptr, nullptr, &err)) {
            state = 1;
        } else {
            state = 2;
            failure = err ? QString::fromUtf8(err->message) : QStringLiteral("gst_init failed");
        }
        if (err)
            g_error_free(err);
    }
    if (state == 2 && error)
        *error = failure;
    return state == 1;
}

bool have_element(const char *name)
{
    GstElementFactory *f = gst_element_factory_find(name);
    if (!f)
        return false;
    gst_object_unref(f);
    return true;
}

// Lowest and highest value of an int or int-range field.
bool int_span(const GstStructure *s, const char *field, int *lo, int *hi)
{
    const GValue *v = gst_structure_get_value(s, field);
    if (!v)
        return false;
    if (G_VALUE_HOLDS_INT(v)) {
        *lo = *hi = g_value_get_int(v);
        return true;
    }
    if (GST_VALUE_HOLDS_INT_RANGE(v)) {
        *lo = gst_value_get_int_range_min(v);
        *hi = gst_value_get_int_range_max(v);
        return true;
    }
    return false;
}

// The camera picture size to ask for: one whose square is at least side
// (the smallest such), else the one with the largest square. Invalid when
// the camera does not say.
QSize choose_camera_size(GstCaps *caps, int side)
{
    QSize best;
    if (!caps || gst_caps_is_any(caps))
        return best;
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        const GstStructure *s = gst_caps_get_structure(caps, i);
        if (!gst_structure_has_name(s, "video/x-raw"))
            continue;
        int wlo = 0, whi = 0, hlo = 0, hhi = 0;
        if (!int_span(s, "width", &wlo, &whi) || !int_span(s, "height", &hlo, &hhi))
            continue;
        if (wlo <= side && side <= whi && hlo <= side && side <= hhi)
            return QSize(side, side);
        const QSize c(whi, hhi);
        const int sq = qMin(whi, hhi);
        const int bestSq = best.isValid() ? qMin(best.width(), best.height()) : 0;
        if (!best.isValid() ||
            (sq >= side && (bestSq < side || qint64(c.width()) * c.height() <
                                                 qint64(best.width()) * best.height())) ||
            (bestSq < side && sq > bestSq))
            best = c;
    }
    return best;
}

QSize probe_camera_size(const QString &source, int side)
{
    GError *err = nullptr;
    // Caps at the end of a description only filter a link, so one follows.
    const QString description = source + QStringLiteral(" ! identity");
    GstElement *bin = gst_parse_bin_from_description(description.toUtf8().constData(), TRUE, &err);
    if (err)
        g_error_free(err);
    if (!bin)
        return QSize();
    gst_object_ref_sink(bin);
    QSize size;
    if (gst_element_set_state(bin, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE) {
        GstPad *pad = gst_element_get_static_pad(bin, "src");
        if (pad) {
            GstCaps *caps = gst_pad_query_caps(pad, nullptr);
            size = choose_camera_size(caps, side);
            if (caps)
                gst_caps_unref(caps);
            gst_object_unref(pad);
        }
    }
    gst_element_set_state(bin, GST_STATE_NULL);
    gst_object_unref(bin);
    return size;
}

QString base64_arg(const QString &path)
{
    QByteArray b64 = path.toUtf8().toBase64();
    b64.replace('\r', QByteArray()).replace('\n', QByteArray());
    return QString::fromLatin1(b64);
}

} // namespace

GstVideoNoteCapture::GstVideoNoteCapture(const QString &dataDir, const QString &cameraSource,
                                         const Services &services, QObject *parent)
    : VideoNoteCapture(parent), m_dataDir(dataDir), m_cameraSource(cameraSource.trimmed()),
      m_services(services)
{
    m_limitTimer.setSingleShot(true);
    m_limitTimer.setInterval(kMaxSeconds * 1000);
    connect(&m_limitTimer, &QTimer::timeout, this, [this] {
        m_services.log(QStringLiteral("video_note: length limit reached\n"));
        stopVideoNoteCapture(true);
    });
    m_eosTimer.setSingleShot(true);
    m_eosTimer.setInterval(5000);
    connect(&m_eosTimer, &QTimer::timeout, this, [this] {
        m_services.log(QStringLiteral("video_note: muxer did not finish\n"));
        finish(false);
        m_services.toast(QStringLiteral("Video message: recording error"));
    });
}

GstVideoNoteCapture::~GstVideoNoteCapture()
{
    teardown();
}

void GstVideoNoteCapture::fail(const QString &userText, const QString &detail, QString *error)
{
    m_services.log(QStringLiteral("video_note: %1\n").arg(detail));
    m_services.toast(userText);
    if (error)
        *error = detail;
}

bool GstVideoNoteCapture::startVideoNoteCapture(QString *error)
{
    if (isRecording())
        return true;
    QString why;
    if (!ensure_gstreamer(&why)) {
        fail(QStringLiteral("Camera: GStreamer unavailable"), QStringLiteral("gstreamer: ") + why,
             error);
        return false;
    }
    const QString folder = QDir(m_dataDir).absoluteFilePath(QStringLiteral("cache/video-note-out"));
    if (!QDir().mkpath(folder)) {
        fail(QStringLiteral("Error: failed to create folder"), QStringLiteral("mkpath failed"),
             error);
        return false;
    }
    m_path = folder + QStringLiteral("/video_note_%1.mp4").arg(QDateTime::currentMSecsSinceEpoch());
    m_captureStarted = false;
    m_stopping = false;
    m_frames = 0;
    if (!buildPipeline(&why)) {
        teardown();
        QFile::remove(m_path);
        QString qtWhy;
        if (!startQtCamera(&qtWhy)) {
            teardown();
            QFile::remove(m_path);
            m_path.clear();
            fail(QStringLiteral("Camera: cannot start recording"),
                 why + QStringLiteral("; ") + qtWhy, error);
            return false;
        }
        m_services.log(QStringLiteral("video_note: %1; recording through Qt's camera\n").arg(why));
    }
    m_services.log(QStringLiteral("video_note: start chat_id=%1 side=%2 source=%3\n")
                       .arg(m_chatId)
                       .arg(m_side)
                       .arg(m_cameraSource));
    Q_EMIT recordingChanged(true);
    return true;
}

bool GstVideoNoteCapture::buildPipeline(QString *error)
{
    const QSize camera = probe_camera_size(m_cameraSource, kSide);
    QString cameraCaps;
    m_side = kSide;
    if (camera.isValid()) {
        cameraCaps = QStringLiteral("capsfilter caps=video/x-raw,width=%1,height=%2 ! ")
                         .arg(camera.width())
                         .arg(camera.height());
        m_side = qMin(kSide, qMin(camera.width(), camera.height())) & ~1;
    }
    const char *aac = have_element("voaacenc") ? "voaacenc" : "avenc_aac";
    const QString description =
        QStringLiteral(
            "%1 ! %2videoconvert ! aspectratiocrop aspect-ratio=1/1 ! videoscale ! videorate ! "
            "video/x-raw,format=I420,width=%3,height=%3,pixel-aspect-ratio=1/1,framerate=%4/1 ! "
            "tee name=t "
            "t. ! queue max-size-buffers=0 max-size-bytes=0 max-size-time=3000000000 ! "
            "x264enc name=venc tune=zerolatency speed-preset=ultrafast bitrate=700 key-int-max=60 "
            "! h264parse ! queue ! mux.video_0 "
            "t. ! queue leaky=downstream max-size-buffers=1 ! videoconvert ! "
            "video/x-raw,format=BGRx ! appsink name=preview sync=false max-buffers=1 drop=true "
            "pulsesrc name=mic ! audioconvert ! audioresample ! audio/x-raw,rate=48000,channels=1 "
            "! level interval=100000000 ! queue ! %5 bitrate=64000 ! aacparse ! queue ! "
            "mux.audio_0 "
            "mp4mux name=mux ! filesink name=sink")
            .arg(m_cameraSource, cameraCaps)
            .arg(m_side)
            .arg(kFrameRate)
            .arg(QLatin1String(aac));
    GError *err = nullptr;
    m_pipeline = gst_parse_launch(description.toUtf8().constData(), &err);
    if (err) {
        const QString text = QString::fromUtf8(err->message);
        g_error_free(err);
        if (error)
            *error = QStringLiteral("pipeline: ") + text;
        return false;
    }
    if (!m_pipeline) {
        if (error)
            *error = QStringLiteral("pipeline: not built");
        return false;
    }

    // The wall clock paces the camera: the sound server's clock may lag
    // behind it (a virtual sink under load), which would slow the pictures.
    GstClock *clock = gst_system_clock_obtain();
    gst_pipeline_use_clock(GST_PIPELINE(m_pipeline), clock);
    gst_object_unref(clock);

    GstElement *sink = gst_bin_get_by_name(GST_BIN(m_pipeline), "sink");
    g_object_set(sink, "location", QFile::encodeName(m_path).constData(), nullptr);
    gst_object_unref(sink);

    // Bus messages come on the pipeline's threads; they are handled here.
    QPointer<GstVideoNoteCapture> self(this);
    GstElement *pipeline = m_pipeline;
    GstBus *bus = gst_element_get_bus(m_pipeline);
    struct Ctx
    {
        QPointer<GstVideoNoteCapture> self;
        GstElement *pipeline;
    };
    gst_bus_set_sync_handler(
        bus,
        [](GstBus *, GstMessage *msg, gpointer data) -> GstBusSyncReply {
            auto *ctx = static_cast<Ctx *>(data);
            const GstMessageType t = GST_MESSAGE_TYPE(msg);
            const GstStructure *st = gst_message_get_structure(msg);
            if (t == GST_MESSAGE_ELEMENT && st && gst_structure_has_name(st, "level")) {
                // The loudest channel's peak, in decibels below full scale.
                const GValue *peaks = gst_structure_get_value(st, "peak");
                const GValueArray *arr =
                    peaks && G_VALUE_HOLDS_BOXED(peaks)
                        ? static_cast<const GValueArray *>(g_value_get_boxed(peaks))
                        : nullptr;
                const double db = arr && arr->n_values > 0 && G_VALUE_HOLDS_DOUBLE(&arr->values[0])
                                      ? g_value_get_double(&arr->values[0])
                                      : -100.0;
                const qreal level = qBound(0.0, std::pow(10.0, db / 20.0), 1.0);
                QPointer<GstVideoNoteCapture> self = ctx->self;
                GstElement *pipeline = ctx->pipeline;
                if (self)
                    QMetaObject::invokeMethod(
                        self.data(),
                        [self, pipeline, level] {
                            if (self && self->m_pipeline == pipeline)
                                Q_EMIT self->inputLevelChanged(level);
                        },
                        Qt::QueuedConnection);
            }
            if (t == GST_MESSAGE_EOS || t == GST_MESSAGE_ERROR) {
                gst_message_ref(msg);
                QPointer<GstVideoNoteCapture> self = ctx->self;
                GstElement *pipeline = ctx->pipeline;
                const bool posted = self && QMetaObject::invokeMethod(
                                                self.data(),
                                                [self, pipeline, msg] {
                                                    if (self && self->m_pipeline == pipeline)
                                                        self->onBusMessage(msg);
                                                    gst_message_unref(msg);
                                                },
                                                Qt::QueuedConnection);
                if (!posted)
                    gst_message_unref(msg);
            }
            return GST_BUS_DROP;
        },
        new Ctx{self, pipeline}, [](gpointer data) { delete static_cast<Ctx *>(data); });
    gst_object_unref(bus);

    // Every picture that reaches the encoder counts; the first one means
    // the camera runs.
    GstElement *venc = gst_bin_get_by_name(GST_BIN(m_pipeline), "venc");
    GstPad *encPad = gst_element_get_static_pad(venc, "sink");
    gst_pad_add_probe(
        encPad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad *, GstPadProbeInfo *, gpointer data) -> GstPadProbeReturn {
            auto *ctx = static_cast<Ctx *>(data);
            GstVideoNoteCapture *r = ctx->self.data();
            if (!r)
                return GST_PAD_PROBE_OK;
            const qint64 n = ++r->m_frames;
            QPointer<GstVideoNoteCapture> self = ctx->self;
            GstElement *pipeline = ctx->pipeline;
            QMetaObject::invokeMethod(
                r,
                [self, pipeline, n] {
                    if (!self || self->m_pipeline != pipeline)
                        return;
                    if (n == 1)
                        self->onFirstFrame();
                    Q_EMIT self->frameEncoded(n);
                },
                Qt::QueuedConnection);
            return GST_PAD_PROBE_OK;
        },
        new Ctx{self, pipeline}, [](gpointer data) { delete static_cast<Ctx *>(data); });
    gst_object_unref(encPad);
    gst_object_unref(venc);

    // The preview: the newest picture, one at a time in flight.
    GstElement *preview = gst_bin_get_by_name(GST_BIN(m_pipeline), "preview");
    GstAppSinkCallbacks callbacks = {};
    callbacks.new_sample = [](GstAppSink *appsink, gpointer data) -> GstFlowReturn {
        auto *ctx = static_cast<Ctx *>(data);
        GstSample *sample = gst_app_sink_pull_sample(appsink);
        GstVideoNoteCapture *r = ctx->self.data();
        if (!sample)
            return GST_FLOW_OK;
        if (r && !r->m_previewBusy.exchange(true)) {
            GstBuffer *buffer = gst_sample_get_buffer(sample);
            GstCaps *caps = gst_sample_get_caps(sample);
            const GstStructure *s = caps ? gst_caps_get_structure(caps, 0) : nullptr;
            int w = 0, h = 0;
            GstMapInfo map;
            QImage image;
            if (s && gst_structure_get_int(s, "width", &w) &&
                gst_structure_get_int(s, "height", &h) && buffer &&
                gst_buffer_map(buffer, &map, GST_MAP_READ)) {
                if (map.size >= gsize(w) * gsize(h) * 4)
                    image = QImage(map.data, w, h, w * 4, QImage::Format_RGB32).copy();
                gst_buffer_unmap(buffer, &map);
            }
            QPointer<GstVideoNoteCapture> self = ctx->self;
            GstElement *pipeline = ctx->pipeline;
            const bool posted = QMetaObject::invokeMethod(
                r,
                [self, pipeline, image] {
                    if (!self)
                        return;
                    self->m_previewBusy = false;
                    if (self->m_pipeline == pipeline && !image.isNull())
                        Q_EMIT self->previewFrame(image);
                },
                Qt::QueuedConnection);
            if (!posted)
                r->m_previewBusy = false;
        }
        gst_sample_unref(sample);
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(preview), &callbacks, new Ctx{self, pipeline},
                               [](gpointer data) { delete static_cast<Ctx *>(data); });
    gst_object_unref(preview);

    if (gst_element_set_state(m_pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        if (error)
            *error = QStringLiteral("pipeline: camera or microphone did not start");
        return false;
    }
    return true;
}

bool GstVideoNoteCapture::startQtCamera(QString *error)
{
    const QList<QCameraInfo> cameras = QCameraInfo::availableCameras();
    if (cameras.isEmpty()) {
        *error = QStringLiteral("no camera for Qt");
        return false;
    }
    m_side = kSide;
    m_qtCamera = new QCamera(cameras.first(), this);
    m_qtSurface = new SoftwareVideoSurface([this](const QImage &f) { onQtFrame(f); }, this);
    m_qtCamera->setViewfinder(m_qtSurface);
    m_qtCamera->setCaptureMode(QCamera::CaptureVideo);
    m_qtRecorder = new QMediaRecorder(m_qtCamera, this);
    QAudioEncoderSettings audio;
    audio.setCodec(QStringLiteral("audio/mpeg, mpegversion=(int)4"));
    QVideoEncoderSettings video;
    video.setCodec(QStringLiteral("video/x-h264"));
    video.setFrameRate(kFrameRate);
    m_qtRecorder->setEncodingSettings(audio, video, QStringLiteral("video/quicktime"));
    m_qtRecorder->setOutputLocation(QUrl::fromLocalFile(m_path));
    connect(m_qtRecorder, &QMediaRecorder::stateChanged, this, [this](QMediaRecorder::State s) {
        if (s == QMediaRecorder::StoppedState && m_stopping)
            finish(true);
    });
    connect(m_qtRecorder, qOverload<QMediaRecorder::Error>(&QMediaRecorder::error), this,
            [this](QMediaRecorder::Error e) {
                if (e == QMediaRecorder::NoError)
                    return;
                m_services.log(QStringLiteral("video_note: error: %1\n")
                                   .arg(m_qtRecorder->errorString().simplified()));
                finish(false);
                m_services.toast(QStringLiteral("Camera: recording failed"));
            });
    m_qtCamera->start();
    m_qtRecorder->record();
    return m_qtRecorder->error() == QMediaRecorder::NoError;
}

void GstVideoNoteCapture::onQtFrame(const QImage &frame)
{
    // The picture of Qt's camera is cut to its middle square for the preview.
    const int side = qMin(frame.width(), frame.height());
    if (side < 1 || !m_qtRecorder)
        return;
    if (++m_frames == 1)
        onFirstFrame();
    Q_EMIT frameEncoded(m_frames.load());
    const QImage square =
        frame.copy((frame.width() - side) / 2, (frame.height() - side) / 2, side, side);
    Q_EMIT previewFrame(
        side > kSide ? square.scaled(kSide, kSide, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     : square);
}

void GstVideoNoteCapture::onFirstFrame()
{
    m_captureStarted = true;
    m_clock.start();
    m_limitTimer.start();
    m_services.log(QStringLiteral("video_note: camera running\n"));
    Q_EMIT captureStartedChanged();
}

void GstVideoNoteCapture::onBusMessage(GstMessage *message)
{
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        if (m_stopping)
            finish(true);
        return;
    }
    GError *err = nullptr;
    gchar *debug = nullptr;
    gst_message_parse_error(message, &err, &debug);
    const QString text = err ? QString::fromUtf8(err->message) : QStringLiteral("unknown error");
    if (err)
        g_error_free(err);
    g_free(debug);
    m_services.log(QStringLiteral("video_note: error: %1\n").arg(text.simplified()));
    finish(false);
    m_services.toast(QStringLiteral("Camera: recording failed"));
}

void GstVideoNoteCapture::stopVideoNoteCapture(bool send)
{
    if (!isRecording() || (m_stopping && send))
        return;
    if (send && m_captureStarted && m_qtRecorder) {
        m_stopping = true;
        m_limitTimer.stop();
        Q_EMIT gestureResetRequested();
        m_qtRecorder->stop();
        m_eosTimer.start();
        return;
    }
    if (send && m_captureStarted) {
        // The muxer writes its index at the end of stream; the file is
        // complete when that reaches the bus.
        m_stopping = true;
        m_limitTimer.stop();
        Q_EMIT gestureResetRequested();
        m_services.log(QStringLiteral("video_note: finishing %1 frames\n").arg(m_frames.load()));
        gst_element_send_event(m_pipeline, gst_event_new_eos());
        m_eosTimer.start();
        return;
    }
    finish(false);
}

void GstVideoNoteCapture::teardown()
{
    m_limitTimer.stop();
    m_eosTimer.stop();
    if (m_qtRecorder) {
        QMediaRecorder *recorder = m_qtRecorder;
        m_qtRecorder = nullptr;
        recorder->disconnect(this);
        recorder->stop();
        recorder->deleteLater();
    }
    if (m_qtCamera) {
        m_qtCamera->stop();
        m_qtCamera->setViewfinder(static_cast<QAbstractVideoSurface *>(nullptr));
        m_qtCamera->deleteLater();
        m_qtCamera = nullptr;
        m_qtSurface->deleteLater();
        m_qtSurface = nullptr;
    }
    if (!m_pipeline)
        return;
    GstElement *pipeline = m_pipeline;
    m_pipeline = nullptr;
    gst_element_set_state(pipeline, GST_STATE_NULL);
    GstBus *bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
}

void GstVideoNoteCapture::finish(bool send)
{
    const bool wasRecording = isRecording();
    teardown();
    m_stopping = false;
    m_captureStarted = false;
    if (!wasRecording)
        return;
    Q_EMIT gestureResetRequested();
    Q_EMIT recordingChanged(false);
    const QFileInfo fi(m_path);
    if (!send || !fi.isFile() || fi.size() < 1) {
        if (send)
            m_services.log(QStringLiteral("video_note: recorded file missing\n"));
        QFile::remove(m_path);
        m_path.clear();
        return;
    }
    const bool asFile = fi.size() > m_sizeLimit;
    const QString verb = asFile ? QStringLiteral("sendfile64") : QStringLiteral("sendvideonote64");
    const QString path64 = base64_arg(m_path);
    m_services.log(QStringLiteral("video_note: send chat=%1 bytes=%2 frames=%3 as=%4 path=%5\n")
                       .arg(m_chatId)
                       .arg(fi.size())
                       .arg(m_frames.load())
                       .arg(verb, m_path));
    if (m_replyToMessageId == 0)
        m_services.send(QStringLiteral("%1 %2 %3").arg(verb).arg(m_chatId).arg(path64));
    else
        m_services.send(QStringLiteral("%1 %2 %3 %4")
                            .arg(verb)
                            .arg(m_chatId)
                            .arg(m_replyToMessageId)
                            .arg(path64));
    if (m_replyToMessageId != 0) {
        m_replyToMessageId = 0;
        Q_EMIT replyTargetConsumed();
    }
    Q_EMIT sent(m_path, asFile);
}
