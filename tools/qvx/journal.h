// How far the pieces of a download are, in a file beside it, so that a later run goes on where a
// run that was killed stopped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qvx::tool {

struct DownloadState {
  struct Piece {
    std::uint64_t start = 0;
    std::uint64_t end = 0;     // one past its last byte
    std::uint64_t copied = 0;  // bytes of it that are in the file
  };

  std::string source;  // a digest of the address, which may hold secrets
  std::uint64_t size = 0;
  std::vector<Piece> pieces;  // in order, without gaps, from 0 to size

  std::uint64_t Copied() const;
};

// False where there is no journal, or none that holds together.
bool ReadJournal(const std::string& native, DownloadState& state);
// In one step: a reader finds the old one or the new one. False where it can't be written.
bool WriteJournal(const std::string& native, const DownloadState& state);

// Splits unfinished pieces until there is one for each job, but into none below the least size.
void SplitPieces(DownloadState& state, std::size_t jobs, std::uint64_t least);

}  // namespace qvx::tool
