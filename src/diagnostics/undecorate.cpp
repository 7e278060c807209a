#include "diagnostics/undecorate.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace qvx::diagnostics {
namespace {

struct Release {
  void operator()(char* text) const { std::free(text); }
};

bool IsDecorated(const std::string& symbol) {
  return symbol.starts_with("_Z") || symbol.starts_with("___Z");
}

// Where the bracket that ends at close begins; 0 if it doesn't.
std::size_t OpeningOf(std::string_view text, std::size_t close) {
  int depth = 0;
  for (std::size_t i = close + 1; i-- > 0;) {
    if (text[i] == ')') ++depth;
    if (text[i] == '(' && --depth == 0) return i;
  }
  return 0;
}

// Cuts the parameters off, and what stands behind them ("const", "[clone ...]").
std::string_view WithoutParameters(std::string_view text) {
  const std::size_t close = text.rfind(')');
  if (close == std::string_view::npos) return text;
  const std::size_t open = OpeningOf(text, close);
  const bool names_a_scope = open == 0 || text.substr(close + 1).starts_with(':');
  return names_a_scope ? text : text.substr(0, open);
}

// Where the name begins behind a result type: after the last blank outside of all brackets.
std::size_t NameBegin(std::string_view text) {
  const std::size_t operators = text.find("operator");
  const std::size_t end = operators == std::string_view::npos ? text.size() : operators;
  std::size_t begin = 0;
  int depth = 0;
  for (std::size_t i = 0; i < end; ++i) {
    if (text[i] == '<' || text[i] == '(' || text[i] == '{') ++depth;
    if (text[i] == '>' || text[i] == ')' || text[i] == '}') --depth;
    if (text[i] == ' ' && depth == 0) begin = i + 1;
  }
  return begin;
}

}  // namespace

std::string UndecorateFull(const std::string& symbol) {
  if (!IsDecorated(symbol)) return symbol;
  int status = 0;
  const std::unique_ptr<char, Release> text(
      abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status));
  return status == 0 && text ? text.get() : symbol;
}

std::string UndecorateName(const std::string& symbol) {
  const std::string full = UndecorateFull(symbol);
  if (full == symbol) return symbol;
  const std::string_view name = WithoutParameters(full);
  return std::string(name.substr(NameBegin(name)));
}

}  // namespace qvx::diagnostics
