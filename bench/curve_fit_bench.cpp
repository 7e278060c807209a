#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <random>
#include <vector>

#include "qvx/curve_fit.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kPoints = 1000000;
constexpr int kDegree = 3;

struct Points {
  Points() : x(kPoints), y(kPoints) {
    std::mt19937 random(14);
    std::uniform_real_distribution<double> place(-2, 2);
    for (std::size_t i = 0; i < x.size(); ++i) {
      x[i] = place(random);
      y[i] = 1 + x[i] * (2 + x[i] * (3 - x[i])) + place(random);
    }
  }

  std::vector<double> x;
  std::vector<double> y;
};

const Points& ThePoints() {
  static const Points points;
  return points;
}

void FitOurs(long long times) {
  double coefficients[kDegree + 1];
  for (long long i = 0; i < times; ++i) {
    Gauss_PolyFit(kPoints, ThePoints().x.data(), ThePoints().y.data(), kDegree, coefficients);
    benchmark::DoNotOptimize(coefficients);
  }
}

// The matrix of powers by columns, then its normal equations.
void FitPeer(long long times) {
  const Eigen::Map<const Eigen::VectorXd> x(ThePoints().x.data(), kPoints);
  const Eigen::Map<const Eigen::VectorXd> y(ThePoints().y.data(), kPoints);
  Eigen::MatrixXd powers(kPoints, kDegree + 1);
  for (long long i = 0; i < times; ++i) {
    powers.col(0).setOnes();
    for (int k = 1; k <= kDegree; ++k) powers.col(k) = powers.col(k - 1).cwiseProduct(x);
    const Eigen::Matrix4d normal = powers.transpose() * powers;
    const Eigen::Vector4d right = powers.transpose() * y;
    const Eigen::Vector4d coefficients = normal.ldlt().solve(right);
    benchmark::DoNotOptimize(coefficients.data());
  }
}

const bool kAdded = AddPair({"curve fit", 1.0, &FitOurs, &FitPeer});

}  // namespace
}  // namespace qvx::bench
