#pragma once

#include <QByteArray>

// True when some JSON object in text names a key twice. Qt 5.15's reader
// loses the first value when it is an object or an array, so such text is
// refused before it gets there; the backend never writes it. Text that is
// not JSON at all, or nests deeper than the reader goes, is left to the
// reader's own error.
bool json_repeats_key(const QByteArray &text);
