#pragma once

#include <QString>

// The media module (libvexa-av.so beside the program): QtMultimedia,
// GStreamer and the classes built on them, loaded on first use. Returns the
// named entry point, or null with the reason.
void *av_module_function(const char *name, QString *error);
