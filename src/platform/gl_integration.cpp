#include "platform/gl_integration.h"

#include <QByteArray>

bool avoid_gl_integration(bool anythingNeedsGl)
{
    static const char kVar[] = "QT_XCB_GL_INTEGRATION";
    if (anythingNeedsGl || qEnvironmentVariableIsSet(kVar))
        return false;
    // Widgets and video frames are painted in software on the raster backing
    // store; "none" only drops the GL-backed window kinds nobody creates.
    return qputenv(kVar, QByteArrayLiteral("none"));
}
