#include "diagnostics/traced.h"

#define QVX_NOT_INLINED __attribute__((noinline, noclone))

namespace {
thread_local volatile int after_call = 0;
}

extern "C" QVX_NOT_INLINED void traced_inner(const std::function<void()>& body) {
  body();
  after_call = 1;
}

namespace traced_test {

template <typename T>
struct Middle {
  QVX_NOT_INLINED void Call(const std::function<void()>& body, T value) const {
    traced_inner(body);
    after_call = static_cast<int>(value);
  }
};

// Its line is told, under the name of the function that it is part of.
constexpr int kLine = __LINE__ + 2;
[[gnu::always_inline]] inline void Inlined(const std::function<void()>& body) {
  Middle<int>().Call(body, 2);
}

QVX_NOT_INLINED void Outer(const std::function<void()>& body) {
  Inlined(body);
  after_call = 3;
}

}  // namespace traced_test

void CallTraced(const std::function<void()>& body) {
  traced_test::Outer(body);
}

int TracedLine() {
  return traced_test::kLine;
}
