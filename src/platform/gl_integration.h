#pragma once

// Qt's xcb platform loads its GLX integration at start-up, and with it the
// GL driver (Mesa's software rasteriser pulls in LLVM, over 40 MB resident),
// even when no window ever draws with OpenGL. Call this before the
// application object is created: unless the user chose an integration in
// QT_XCB_GL_INTEGRATION, it is switched off when nothing shown needs GL.
// Returns true when it switched the integration off.
bool avoid_gl_integration(bool anythingNeedsGl);
