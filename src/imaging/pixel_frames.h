// Whole pictures: where the planes and rows of each layout lie, and which row loops run over
// them. The caller chooses the loops.
#pragma once

#include "imaging/pixel_rows.h"

namespace qvx::imaging {

enum class Sampling { k420, k422, k444 };

// As a caller gave it: signs and null pointers are looked at here.
struct FrameSize {
  int width;
  int height;
};

struct SourceRows {
  const void* data;
  int stride;
};

struct TargetRows {
  void* data;
  int stride;
};

void RgbToPlanar(const ColourRows& rows, RgbLayout from, Sampling to, FrameSize size,
                 SourceRows src, void* dst, bool uv_swap, bool bgr);
void PlanarToRgb(const ColourRows& rows, Sampling from, RgbLayout to, FrameSize size,
                 const void* src, bool uv_swap, TargetRows dst, bool bgr);
void PackedToRgb888(const ColourRows& rows, FrameSize size, const void* src, bool v_first,
                    TargetRows dst, bool bgr);
void PackedToArgb32(const ColourRows& rows, FrameSize size, const void* src, bool v_first,
                    TargetRows dst, SourceRows alpha);

void PlanarToPacked(const RepackRows& rows, FrameSize size, const void* src, bool uv_swap,
                    void* dst);
void PackedToPlanar(const RepackRows& rows, Sampling to, FrameSize size, const void* src, void* dst,
                    bool uv_swap);
void HalveChromaRows(const RepackRows& rows, FrameSize size, const void* src, bool src_uv_swap,
                     void* dst, bool dst_uv_swap);
void DoubleChromaRows(FrameSize size, const void* src, bool src_uv_swap, void* dst,
                      bool dst_uv_swap);
void SplitChroma(const RepackRows& rows, FrameSize size, const void* src, void* dst, bool uv_swap);
void JoinChroma(const RepackRows& rows, FrameSize size, const void* src, bool uv_swap, void* dst);

void RgbToRgb(const RepackRows& rows, RgbLayout from, RgbLayout to, FrameSize size, SourceRows src,
              TargetRows dst, bool swap);

}  // namespace qvx::imaging
