/// @file layout.h  What arrays are sized for: the longest frame and the most bands of all layouts.
#ifndef QVVOICE_DSP_LAYOUT_H
#define QVVOICE_DSP_LAYOUT_H

#define QV_MAX_FRAME 320                              ///< longest frame, in samples
#define QV_MAX_BANDS 32                               ///< most bands
#define QV_GROUP_BANDS 4                              ///< neighbouring bands that share parameters
#define QV_MAX_GROUPS (QV_MAX_BANDS / QV_GROUP_BANDS) ///< most groups of bands

#endif
