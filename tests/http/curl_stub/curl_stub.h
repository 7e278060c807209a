// What the stub of libcurl counts, and where a test tells it to fail; exported as "curl_stub".
#pragma once

#include <map>

namespace qvx::test {

struct CurlStub {
  int prepared = 0;
  int cleaned = 0;
  int handles = 0;
  std::map<int, long> options;
  std::map<int, long> performed;  // those that stood when the last transfer began

  bool lacks_memory = false;
  int transfer_result = 0;
  int info_result = 0;
};

}  // namespace qvx::test
