#include "journal.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace qvx::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kTitle = "qvx fetch 1";
constexpr std::size_t kMostPieces = 10000;

using Piece = DownloadState::Piece;

std::uint64_t LeftOf(const Piece& piece) {
  return piece.end - piece.start - piece.copied;
}

bool HoldsTogether(const DownloadState& state) {
  std::uint64_t place = 0;
  for (const Piece& piece : state.pieces) {
    if (piece.start != place || piece.end <= piece.start) return false;
    if (piece.copied > piece.end - piece.start) return false;
    place = piece.end;
  }
  return place == state.size && state.size > 0;
}

bool ReadPieces(std::istream& stream, DownloadState& state) {
  for (std::string word; stream >> word && state.pieces.size() < kMostPieces;) {
    if (word == "end") return true;
    Piece piece;
    if (word != "piece" || !(stream >> piece.start >> piece.end >> piece.copied)) return false;
    state.pieces.push_back(piece);
  }
  return false;
}

}  // namespace

std::uint64_t DownloadState::Copied() const {
  std::uint64_t sum = 0;
  for (const Piece& piece : pieces) sum += piece.copied;
  return sum;
}

bool ReadJournal(const std::string& native, DownloadState& state) {
  state = DownloadState();
  std::ifstream stream(native);
  std::string title;
  std::string word;
  if (!std::getline(stream, title) || title != kTitle) return false;
  if (!std::getline(stream, state.source)) return false;
  if (!(stream >> word >> state.size) || word != "size") return false;
  return ReadPieces(stream, state) && HoldsTogether(state);
}

bool WriteJournal(const std::string& native, const DownloadState& state) {
  const std::string fresh = native + ".new";
  std::ofstream stream(fresh, std::ios::trunc);
  stream << kTitle << '\n' << state.source << "\nsize " << state.size << '\n';
  for (const Piece& piece : state.pieces)
    stream << "piece " << piece.start << ' ' << piece.end << ' ' << piece.copied << '\n';
  stream << "end\n";
  stream.close();
  std::error_code error;
  if (stream) fs::rename(fresh, native, error);
  return stream && !error;
}

void SplitPieces(DownloadState& state, std::size_t jobs, std::uint64_t least) {
  std::vector<Piece>& pieces = state.pieces;
  const auto is_left = [](const Piece& piece) { return LeftOf(piece) > 0; };
  const auto less = [](const Piece& a, const Piece& b) { return LeftOf(a) < LeftOf(b); };
  auto count = static_cast<std::size_t>(std::count_if(pieces.begin(), pieces.end(), is_left));
  for (; count > 0 && count < jobs; ++count) {
    const auto largest = std::max_element(pieces.begin(), pieces.end(), less);
    if (LeftOf(*largest) < 2 * least) return;
    const std::uint64_t share = std::max(least, LeftOf(*largest) / (jobs - count + 1));
    Piece rest{largest->end - share, largest->end, 0};
    largest->end = rest.start;
    pieces.insert(largest + 1, rest);
  }
}

}  // namespace qvx::tool
