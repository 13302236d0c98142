#pragma once

// Sound that tells where it is: every stretch of it is unlike every other, so that a shift by one sample shows.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "tests/platform/export/passthrough_fixture.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle::testing {

/// Samples from -1 to 1, channels one after another in every sample.
struct Sound {
  int rate = 48000;
  int channels = 2;
  std::vector<float> samples;

  std::int64_t length() const { return static_cast<std::int64_t>(samples.size()) / channels; }
  Sound cut(std::int64_t from, std::int64_t count) const {
    Sound piece{rate, channels, {}};
    for (std::int64_t i = from * channels; i < (from + count) * channels; ++i) {
      const bool isThere = i >= 0 && i < static_cast<std::int64_t>(samples.size());
      piece.samples.push_back(isThere ? samples[static_cast<std::size_t>(i)] : 0.0F);
    }
    return piece;
  }
  Sound& operator+=(const Sound& other) {
    samples.insert(samples.end(), other.samples.begin(), other.samples.end());
    return *this;
  }
  static Sound silence(int rate, int channels, std::int64_t count) {
    return {rate, channels, std::vector<float>(static_cast<std::size_t>(count * channels))};
  }
};

/// A sweep upwards in every channel, each at its own pace, at whole 16-bit values.
inline Sound sweep(double seconds, int rate = 48000, int channels = 2, double level = 0.4) {
  Sound sound{rate, channels, {}};
  const auto count = static_cast<std::int64_t>(std::llround(seconds * rate));
  for (std::int64_t i = 0; i < count; ++i) {
    const double time = static_cast<double>(i) / rate;
    for (int channel = 0; channel < channels; ++channel) {
      const double phase = (200 + 170 * channel + (300 + 40 * channel) * time) * time;
      const double value = level * std::sin(2 * std::numbers::pi * phase);
      sound.samples.push_back(static_cast<float>(std::lround(value * 32767)) / 32768.0F);
    }
  }
  return sound;
}

inline void runFfmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
  const RunResult run = runProgram(arguments);
  if (run.status != 0) throw std::runtime_error("ffmpeg failed: " + run.error);
}

/// Writes the sound as raw samples; the input arguments for ffmpeg.
inline std::vector<std::string> inputOf(const ScratchFolder& folder, const std::string& name, const Sound& sound) {
  std::string bytes(sound.samples.size() * sizeof(float), '\0');
  std::memcpy(bytes.data(), sound.samples.data(), bytes.size());
  const std::string path = folder.write(name + ".f32", bytes);
  return {"-f", "f32le", "-ar", std::to_string(sound.rate), "-ac", std::to_string(sound.channels), "-i", path};
}

/// A movie with this sound in one track, coded as `options` say.
inline std::string soundMovie(const ScratchFolder& folder, const std::string& name, const Sound& sound,
                              const std::vector<std::string>& options = {"-c:a", "pcm_s16le"}) {
  std::vector<std::string> arguments = inputOf(folder, name, sound);
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(folder.file(name));
  runFfmpeg(arguments);
  return folder.file(name);
}

/// The sound of a movie's first sound track, as ffmpeg decodes it.
inline Sound soundOf(const ScratchFolder& folder, const std::string& movie) {
  const RunResult probe = runProgram({"ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                                      "stream=sample_rate,channels", "-of", "csv=p=0", movie});
  Sound sound;
  if (std::sscanf(probe.output.c_str(), "%d,%d", &sound.rate, &sound.channels) != 2) return {0, 1, {}};
  const std::string raw = folder.file("decoded.f32");
  runFfmpeg({"-i", movie, "-map", "0:a:0", "-f", "f32le", raw});
  const std::string bytes = readFile(raw);
  sound.samples.resize(bytes.size() / sizeof(float));
  std::memcpy(sound.samples.data(), bytes.data(), sound.samples.size() * sizeof(float));
  return sound;
}

/// Level of the wanted signal over that of the difference, in decibels; 200 where they are equal.
inline double signalToNoise(const Sound& wanted, const Sound& got) {
  double signal = 0;
  double noise = 0;
  for (std::size_t i = 0; i < wanted.samples.size(); ++i) {
    const double value = wanted.samples[i];
    const double other = i < got.samples.size() ? got.samples[i] : 0;
    signal += value * value;
    noise += (value - other) * (value - other);
  }
  return noise == 0 ? 200 : 10 * std::log10(signal / noise);
}

inline ::testing::AssertionResult isSame(const Sound& wanted, const Sound& got, float tolerance = 0) {
  if (wanted.rate != got.rate || wanted.channels != got.channels || wanted.length() != got.length()) {
    return ::testing::AssertionFailure() << got.length() << " samples of " << got.channels << " channels at "
                                         << got.rate << ", wanted " << wanted.length() << " of " << wanted.channels
                                         << " at " << wanted.rate;
  }
  for (std::size_t i = 0; i < wanted.samples.size(); ++i) {
    if (std::abs(wanted.samples[i] - got.samples[i]) > tolerance) {
      return ::testing::AssertionFailure() << "sample " << static_cast<std::int64_t>(i) / wanted.channels << " is "
                                           << got.samples[i] << ", wanted " << wanted.samples[i];
    }
  }
  return ::testing::AssertionSuccess();
}

/// One answer of ffprobe, without the line end.
inline std::string probed(const std::string& movie, const std::string& stream, const std::string& entries) {
  RunResult run = runProgram(
      {"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries", entries, "-of", "csv=p=0", movie});
  while (!run.output.empty() && (run.output.back() == '\n' || run.output.back() == ',')) run.output.pop_back();
  return run.output + run.error;
}

/// Overwrites the coded bytes of packet `number` of a stream, the first `kept` ones excepted.
inline void damagePacket(const std::string& movie, const std::string& stream, int number, std::size_t kept) {
  std::istringstream packets(runProgram({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                                         "packet=size,pos", "-of", "csv=p=0", movie})
                                 .output);
  std::string line;
  for (int i = 0; i <= number && std::getline(packets, line);) i += line.empty() ? 0 : 1;  // side data end a line
  std::size_t size = 0;
  std::size_t place = 0;
  if (std::sscanf(line.c_str(), "%zu,%zu", &size, &place) != 2 || size <= kept) {
    throw std::runtime_error("no packet to damage: " + line);
  }
  std::fstream file(movie, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(place + kept));
  for (std::size_t i = kept; i < size; ++i) file.put(static_cast<char>(i * 89 + 0x5b));
  if (!file.flush()) throw std::runtime_error("cannot write " + movie);
}

/// ffprobe, mediainfo and GStreamer open and read the movie without complaint.
inline void expectReadersContent(const std::string& movie) {
  const RunResult ffmpeg = runProgram({"ffmpeg", "-v", "warning", "-nostdin", "-i", movie, "-f", "null", "-"});
  EXPECT_EQ(ffmpeg.status, 0);
  EXPECT_EQ(ffmpeg.error, "");
  const RunResult info = runProgram({"mediainfo", "--Output=General;%Format%|%IsTruncated%|%Errors%", movie});
  EXPECT_EQ(info.status, 0);
  EXPECT_EQ(info.output.find("Yes"), std::string::npos) << info.output;
  EXPECT_TRUE(info.output.starts_with("MPEG-4")) << info.output;
  const RunResult discoverer = runProgram({"gst-discoverer-1.0", movie});
  EXPECT_EQ(discoverer.status, 0) << discoverer.error;
  EXPECT_EQ(discoverer.output.find("An error"), std::string::npos) << discoverer.output;
  EXPECT_EQ(discoverer.output.find("missing"), std::string::npos) << discoverer.output;
}

}  // namespace vistrelle::testing
