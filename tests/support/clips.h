#pragma once

#include <string>

#include "tests/support/scratch_folder.h"

/// Movies for tests: the samples of the tree, and clips that ffmpeg makes when they are wanted.
namespace vistrelle::testing {

/// Path of a sample in tests/data.
std::string sampleMovie(const std::string& name);

/// One second of sound and nothing else, MP4.
std::string soundClip(const ScratchFolder& folder);
/// A video whose samples are encrypted (common encryption, AES-CTR).
std::string encryptedClip(const ScratchFolder& folder);
/// A video whose sample table stands behind its samples.
std::string lateIndexClip(const ScratchFolder& folder);
/// An AVI of 25 key frames a second that leaves its frames 5 to 12 out.
std::string gappyClip(const ScratchFolder& folder);

/// The frame on screen at `seconds` by a linear decode from the start, as a BMP of width x height; empty on failure.
std::string linearFrame(const ScratchFolder& folder, const std::string& movie, double seconds, int width, int height);

}  // namespace vistrelle::testing
