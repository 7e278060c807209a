// Functions with names and source lines for stack walks to find; compiled with debug data and
// without inlining.
#pragma once

#include <functional>

// Calls the body from traced_test::Outer, through Middle<int> and the plain C function
// traced_inner.
void CallTraced(const std::function<void()>& body);
// The line of traced.cpp in which Outer calls.
int TracedLine();
