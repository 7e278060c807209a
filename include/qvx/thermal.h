// False-colour pictures of measured values: a table of 256 colours, and values mapped into it.
//
// A colour table is 256 words of the caller's; each is an opaque pixel, 0xFF000000 | red << 16 |
// green << 8 | blue, as a 32-bit BMP and the drawing functions take it. No state; any number of
// threads may call.
#pragma once

#include "qvx/types.h"

extern "C" {

// 5 rows of 10 shades for the caller's use: pale tones, yellows and oranges, greens, reds, blues.
// Each is a colour reference, blue << 16 | green << 8 | red with the top byte 0, as
// InitHotImageColorTable2 takes it.
QVX_API extern const unsigned int gCommonColorTable[5][10];

// Fills the table with colours from green (1) through yellow to red (255). Entry 0 is a violet
// blue (117, 101, 232) that stands apart, so that what lies below the range shows.
QVX_API void InitHotImageColorTable(unsigned int* table);

// Fills the table between two colour references: the hue goes in 256 equal steps from that of
// color1 towards that of color2, never through 0; entry 255 is one step short of color2.
// Saturation and value are the mean of the two colours' in all entries. Hue, saturation and
// value are those of colour_model.h.
QVX_API void InitHotImageColorTable2(unsigned int* table, unsigned int color1, unsigned int color2);

// Cuts the range from minValue to maxValue into 256 bins of one width and gives the bin of each
// of count values: bin = (value - minValue) * (256 / range), without what is behind the point,
// and 0 and 255 where that lies outside. pixels gets the table's words and indices the bins;
// either may be null. maxValue is in bin 255. A minValue above maxValue turns the scale round.
// Where the two are equal every bin is 0; what is not a number is in bin 0. A count below 1,
// a null data or pixels without a table write nothing. pixels and indices must not overlap with
// data, table or each other.
QVX_API void ImageDataToHotImage(const double* data, int count, double minValue, double maxValue,
                                 const unsigned int* table, unsigned int* pixels,
                                 unsigned char* indices);

}  // extern "C"
