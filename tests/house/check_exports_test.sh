#!/usr/bin/env bash
# Shows that check_exports.py accepts a library that fits its header and notices one export
# too many, one too few, and a declaration that nobody could link.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/include"
cd "$work"

cat >include/sample.h <<'CODE'
#pragma once
#define API __attribute__((visibility("default")))
template <typename T>
class Box {
 public:
  Box();
  T Get() const;

 private:
  T value_;
};
extern template class API Box<char>;
class API Base {
 public:
  virtual ~Base();
  virtual int Ask() = 0;
  int Inline() const { return 1; }
};
class API Shape : public Base {
 public:
  Shape();
  ~Shape() override;
  int Ask() override;
  static int count;
};
extern "C" API int Plain(int value);
extern API int gNumber;
CODE
cat >sample.cpp <<'CODE'
#include "sample.h"
template <typename T> Box<T>::Box() : value_() {}
template <typename T> T Box<T>::Get() const { return value_; }
template class Box<char>;
Base::~Base() {}
Shape::Shape() {}
Shape::~Shape() {}
int Shape::Ask() { return 2; }
int Shape::count = 0;
int Plain(int value) { return value; }
int gNumber = 1;
int Inner() { return 3; }
CODE

build() { c++ -shared -fPIC -fvisibility=hidden -fvisibility-inlines-hidden "$@" -o libsample.so; }
check() { python3 "$here/check_exports.py" libsample.so include; }
expect() {
  local words=$1
  if output=$(check); then echo "not noticed: $words"; exit 1; fi
  grep -qF "$words" <<<"$output" || { echo "wrong report for: $words"; echo "$output"; exit 1; }
}

build -Iinclude sample.cpp
check
sed 's/^int Inner/__attribute__((visibility("default"))) int Inner/' sample.cpp >surplus.cpp
build -Iinclude surplus.cpp
expect "exported but not declared: Inner()"
build -Iinclude sample.cpp
for line in 'API void Lost();' 'class API Gone { public: Gone(); };'; do
  cp include/sample.h kept.h
  echo "$line" >>include/sample.h
  expect "declared for export but not exported: "
  mv kept.h include/sample.h
done
echo 'int Unmarked();' >>include/sample.h
expect "not marked for export: Unmarked()"
