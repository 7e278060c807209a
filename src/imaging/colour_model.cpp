#include "qvx/colour_model.h"

#include <algorithm>
#include <cmath>

namespace qvx::imaging {
namespace {

constexpr double kByteScale = 0.00392156862745098;
constexpr double kSixtieth = 0.016666666666666666;

// The components as fractions, with the greatest and the least of them.
struct Fractions {
  Fractions(unsigned char r, unsigned char g, unsigned char b)
      : red(r * kByteScale),
        green(g * kByteScale),
        blue(b * kByteScale),
        max(std::max({r, g, b}) * kByteScale),
        min(std::min({r, g, b}) * kByteScale) {}

  double Delta() const { return max - min; }

  double red;
  double green;
  double blue;
  double max;
  double min;
};

// Where in the circle a colour stands: which third, and how far from its middle.
struct Sector {
  double third;
  double offset;
};

Sector SectorOf(const Fractions& colour, double delta) {
  if (colour.red == colour.max) return {0.0, (colour.green - colour.blue) / delta};
  if (colour.green == colour.max) return {1.0, (colour.blue - colour.red) / delta};
  return {2.0, (colour.red - colour.green) / delta};
}

double NotNegative(double hue) {
  return hue < 0.0 ? hue + 360.0 : hue;
}

// The comparisons are such that what is no number gives 0.
unsigned char ToByte(double fraction) {
  const double scaled = fraction * 255.0;
  if (!(scaled > 0.0)) return 0;
  return scaled < 255.0 ? static_cast<unsigned char>(scaled) : 255;
}

struct Output {
  void Set(double red, double green, double blue) const {
    if (r == nullptr || g == nullptr || b == nullptr) return;
    *r = ToByte(red);
    *g = ToByte(green);
    *b = ToByte(blue);
  }

  unsigned char* r;
  unsigned char* g;
  unsigned char* b;
};

void SetSixth(double x, double s, double v, const Output& out) {
  const double floor = x >= 0.0 && x < 5.0 ? static_cast<int>(x) : std::floor(x);
  const double f = x - floor;
  const double p = (1.0 - s) * v;
  const double q = (1.0 - f * s) * v;
  const double t = (1.0 - (1.0 - f) * s) * v;
  if (floor == 0.0) return out.Set(v, t, p);
  if (floor == 1.0) return out.Set(q, v, p);
  if (floor == 2.0) return out.Set(p, v, t);
  if (floor == 3.0) return out.Set(p, q, v);
  if (floor == 4.0) return out.Set(t, p, v);
  out.Set(v, p, q);
}

double HlsPart(double m1, double m2, double hue) {
  if (hue > 360.0) {
    hue -= 360.0;
  } else if (hue < 0.0) {
    hue += 360.0;
  }
  if (hue < 60.0) return (m2 - m1) * hue * kSixtieth + m1;
  if (hue < 180.0) return m2;
  if (hue < 240.0) return (m2 - m1) * (240.0 - hue) * kSixtieth + m1;
  return m1;
}

}  // namespace
}  // namespace qvx::imaging

namespace imaging = qvx::imaging;

void RGBToHSV(unsigned char r, unsigned char g, unsigned char b, double* h, double* s, double* v) {
  if (h == nullptr || s == nullptr || v == nullptr) return;
  const imaging::Fractions colour(r, g, b);
  const double delta = colour.Delta();
  *v = colour.max;
  *s = *h = 0.0;
  if (delta == 0.0) return;
  *s = delta / colour.max;
  const imaging::Sector sector = imaging::SectorOf(colour, delta);
  *h = imaging::NotNegative((sector.offset + 2.0 * sector.third) * 60.0);
}

void HSVToRGB(double h, double s, double v, unsigned char* r, unsigned char* g, unsigned char* b) {
  const imaging::Output out{r, g, b};
  if (s == 0.0) return out.Set(v, v, v);
  imaging::SetSixth(h * imaging::kSixtieth, s, v, out);
}

void RGBToHLS(double* h, double* l, double* s, unsigned char r, unsigned char g, unsigned char b) {
  if (h == nullptr || l == nullptr || s == nullptr) return;
  const imaging::Fractions colour(r, g, b);
  const double delta = colour.Delta();
  const double lightness = (colour.max + colour.min) * 0.5;
  *l = lightness;
  *s = *h = 0.0;
  if (delta == 0.0) return;
  *s = delta / (lightness > 0.5 ? 2.0 - colour.max - colour.min : colour.max + colour.min);
  const imaging::Sector sector = imaging::SectorOf(colour, delta);
  *h = imaging::NotNegative(sector.offset * 60.0 + 120.0 * sector.third);
}

void HLSToRGB(unsigned char* r, unsigned char* g, unsigned char* b, double h, double l, double s) {
  const imaging::Output out{r, g, b};
  if (s == 0.0) return out.Set(l, l, l);
  const double m2 = l > 0.5 ? (1.0 - s) * l + s : (s + 1.0) * l;
  const double m1 = l + l - m2;
  out.Set(imaging::HlsPart(m1, m2, h + 120.0), imaging::HlsPart(m1, m2, h),
          imaging::HlsPart(m1, m2, h - 120.0));
}
