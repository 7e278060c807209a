#include "qvx/curve_fit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace {

std::size_t Index(int i) {
  return static_cast<std::size_t>(i);
}

double calc_mean(const double* values, int count) {
  if (count < 1) return 0.0;
  double sum = 0.0;
  for (int i = 0; i < count; ++i) sum += values[i];
  return sum / count;
}

double calc_std_deviation(const double* values, int count) {
  if (count < 1) return 0.0;
  const double mean = calc_mean(values, count);
  double sum = 0.0;
  for (int i = 0; i < count; ++i) sum += (values[i] - mean) * (values[i] - mean);
  return std::sqrt(sum / (count - 1));
}

// Smaller first; what is no number comes last, so that the order holds for any values.
bool SortsBefore(double left, double right) {
  return left < right || (std::isnan(right) && !std::isnan(left));
}

// The mean without the smallest and the largest sample.
double TrimmedMean(const double* data, int count) {
  if (count < 3) return 0.0;
  std::vector<double> sorted(data, data + count);
  std::sort(sorted.begin(), sorted.end(), &SortsBefore);
  return calc_mean(sorted.data() + 1, count - 2);
}

// Repairs one series. Step k leads from sample k to sample k + 1.
class Smoother {
 public:
  Smoother(const double* data, double* out, int count, double threshold)
      : data_(data),
        out_(out),
        steps_(count - 1),
        threshold_(threshold),
        centre_(TrimmedMean(data, count)),
        band_(2 * calc_std_deviation(data, count)),
        diff_(Index(steps_)) {
    for (int k = 0; k < steps_; ++k) diff_[Index(k)] = data[k + 1] - data[k];
  }

  bool Run() {
    const int start = LongestCleanRun();
    if (start < 0) return false;
    out_[start] = data_[start];
    RepairForward(start);
    RepairBackward(start);
    return replaced_ <= (steps_ + 1) / 3;
  }

 private:
  double Step(int k) const { return std::fabs(diff_[Index(k)]); }
  double Distance(int k) const { return std::fabs(data_[k + 1] - centre_); }

  // A step at the limit is neither clean nor bad: it leaves things as they are.
  bool IsClean(int k) const { return Step(k) < threshold_ && Distance(k) < band_; }
  bool IsBad(int k) const { return Step(k) > threshold_ || Distance(k) > band_; }
  bool StaysBad(int k) const { return Step(k) >= threshold_ || Distance(k) >= band_; }

  // The first step of the longest run of at least two, the first one among equals; or -1.
  int LongestCleanRun() const {
    int best = -1;
    int best_length = 1;
    int length = 0;
    for (int k = 0; k < steps_; ++k) {
      length = IsClean(k) ? length + 1 : 0;
      if (length <= best_length) continue;
      best_length = length;
      best = k - length + 1;
    }
    return best;
  }

  void RepairForward(int start) {
    int gap = -1;
    for (int k = start; k < steps_; ++k) {
      if (gap < 0 && IsBad(k)) {
        gap = k;
      } else if (gap < 0) {
        out_[k + 1] = data_[k + 1];
      } else if (!StaysBad(k)) {
        BridgeForward(std::exchange(gap, -1), k + 1);
      }
    }
    if (gap >= 0) ExtendForward(gap);
  }

  // Draws a line from one good sample to the next one.
  void BridgeForward(int from, int to) {
    const int steps = to - from;
    const double slope = (data_[to] - data_[from]) / steps;
    for (int j = 1; j < steps; ++j) out_[from + j] = j * slope + data_[from];
    replaced_ += steps - 1;
    out_[to] = data_[to];
  }

  void ExtendForward(int from) {
    const double slope = diff_[Index(from - 1)];
    for (int j = 1; j <= steps_ - from; ++j) out_[from + j] = j * slope + data_[from];
    replaced_ += steps_ - from;
  }

  void RepairBackward(int start) {
    int gap = -1;
    for (int k = start - 1; k >= 0; --k) {
      if (gap < 0 && IsBad(k)) {
        gap = k + 1;
      } else if (gap < 0) {
        out_[k + 1] = data_[k + 1];
      } else if (!StaysBad(k)) {
        BridgeBackward(std::exchange(gap, -1) + 1, k + 1);
      }
    }
    if (gap >= 0) {
      ExtendBackward(gap);
    } else {
      out_[0] = data_[0];
    }
  }

  void BridgeBackward(int from, int to) {
    const int steps = from - to;
    const double slope = (data_[to] - data_[from]) / steps;
    for (int j = 1; j < steps; ++j) out_[from - j] = j * slope + data_[from];
    replaced_ += steps - 1;
    out_[to - 1] = data_[to - 1];
    out_[to] = data_[to];
  }

  void ExtendBackward(int top) {
    const double slope = diff_[Index(top)];
    for (int j = top; j >= 0; --j) out_[j] = data_[top + 1] - (top - j + 1) * slope;
    replaced_ += top + 1;
  }

  const double* data_;
  double* out_;
  int steps_;
  double threshold_;
  double centre_;
  double band_;
  std::vector<double> diff_;
  int replaced_ = 0;
};

// A square matrix, row after row.
class Matrix {
 public:
  Matrix(double* elements, int size) : elements_(elements), size_(Index(size)) {}
  double* operator[](int row) const { return elements_ + Index(row) * size_; }

 private:
  double* elements_;
  std::size_t size_;
};

// The row whose own diagonal element is the largest, of row k to the last but one.
int PivotRow(const Matrix& a, int n, int k) {
  int pivot = k;
  for (int i = k + 1; i < n - 1; ++i) {
    if (std::fabs(a[i][i]) > std::fabs(a[pivot][pivot])) pivot = i;
  }
  return pivot;
}

void Eliminate(const Matrix& a, int n, int k, double* b) {
  for (int i = k + 1; i < n; ++i) {
    for (int j = k + 1; j < n; ++j) a[i][j] = a[i][j] - a[k][j] * a[i][k] / a[k][k];
    b[i] = b[i] - a[i][k] * b[k] / a[k][k];
  }
}

// Solves n equations; uses up the matrix and the right sides b.
void Gauss_Solve(int n, double* elements, double* solution, double* b) {
  if (n < 1) return;
  const Matrix a(elements, n);
  for (int k = 0; k < n - 1; ++k) {
    const int pivot = PivotRow(a, n, k);
    if (pivot != k) std::swap_ranges(a[k], a[k] + n, a[pivot]);
    std::swap(b[k], b[pivot]);
    Eliminate(a, n, k, b);
  }
  for (int i = n - 1; i >= 0; --i) {
    solution[i] = b[i];
    for (int j = i + 1; j < n; ++j) solution[i] -= a[i][j] * solution[j];
    solution[i] /= a[i][i];
  }
}

// The sums of x^k up to k of 2 * degree, and of y x^k up to degree.
struct PowerSums {
  explicit PowerSums(int degree) : x(2 * Index(degree) + 1), y(Index(degree) + 1) {}

  std::vector<double> x;
  std::vector<double> y;
};

// With a degree known to the compiler the sums stay in registers.
template <std::size_t kTerms>
void SumPowers(int count, const double* x, const double* y, PowerSums& sums) {
  double sum_x[2 * kTerms - 1] = {};
  double sum_y[kTerms] = {};
  for (int i = 0; i < count; ++i) {
    double power = 1.0;
    for (std::size_t k = 0; k < 2 * kTerms - 1; ++k, power *= x[i]) {
      sum_x[k] += power;
      if (k < kTerms) sum_y[k] += y[i] * power;
    }
  }
  std::copy(sum_x, sum_x + 2 * kTerms - 1, sums.x.begin());
  std::copy(sum_y, sum_y + kTerms, sums.y.begin());
}

void SumAnyPowers(int count, const double* x, const double* y, PowerSums& sums) {
  const std::size_t terms = sums.y.size();
  for (int i = 0; i < count; ++i) {
    double power = 1.0;
    for (std::size_t k = 0; k < 2 * terms - 1; ++k, power *= x[i]) {
      sums.x[k] += power;
      if (k < terms) sums.y[k] += y[i] * power;
    }
  }
}

void Sum(int count, const double* x, const double* y, PowerSums& sums) {
  switch (sums.y.size()) {
    case 1:
      return SumPowers<1>(count, x, y, sums);
    case 2:
      return SumPowers<2>(count, x, y, sums);
    case 3:
      return SumPowers<3>(count, x, y, sums);
    case 4:
      return SumPowers<4>(count, x, y, sums);
    default:
      return SumAnyPowers(count, x, y, sums);
  }
}

}  // namespace

int SmoothData(double* data, double* out, int count, double threshold) {
  if (data == nullptr || out == nullptr || count < 2) return 0;
  return Smoother(data, out, count, threshold).Run() ? 1 : 0;
}

void Gauss_PolyFit(int count, const double* x, const double* y, int degree, double* coefficients) {
  if (x == nullptr || y == nullptr || coefficients == nullptr || degree < 0) return;
  PowerSums sums(degree);
  Sum(count, x, y, sums);
  const std::size_t terms = sums.y.size();
  std::vector<double> matrix(terms * terms);
  for (std::size_t row = 0; row < terms; ++row) {
    std::copy_n(sums.x.begin() + static_cast<std::ptrdiff_t>(row), terms,
                matrix.begin() + static_cast<std::ptrdiff_t>(row * terms));
  }
  Gauss_Solve(degree + 1, matrix.data(), coefficients, sums.y.data());
}
