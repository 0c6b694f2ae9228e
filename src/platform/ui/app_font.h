#pragma once

// Makes the colour emoji font the first fallback of the application font, so
// that an emoji the text font lacks is not taken from a monochrome symbol
// font further down the system's list. Call after the QApplication exists.
void prefer_colour_emoji();
