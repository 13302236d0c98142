#include "tests/support/clips.h"

#include <stdexcept>
#include <vector>

#include "tests/support/tool_run.h"

namespace vistrelle::testing {
namespace {

std::string make(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.push_back(path);
  const RunResult run = runProgram(command);
  if (run.status != 0) throw std::runtime_error("ffmpeg could not make " + path + ": " + run.error);
  return path;
}

const std::vector<std::string> kPattern{"-f",   "lavfi",   "-i",      "testsrc2=size=160x120:rate=25:duration=3",
                                        "-c:v", "libx264", "-preset", "veryfast"};

std::vector<std::string> pattern(const std::vector<std::string>& more) {
  std::vector<std::string> arguments = kPattern;
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace

std::string sampleMovie(const std::string& name) {
  return std::string(VISTRELLE_TEST_DATA) + "/" + name;
}

std::string soundClip(const ScratchFolder& folder) {
  return make(folder.file("sound.mp4"), {"-f", "lavfi", "-i", "sine=duration=1", "-c:a", "aac"});
}

std::string encryptedClip(const ScratchFolder& folder) {
  return make(folder.file("encrypted.mp4"),
              pattern({"-encryption_scheme", "cenc-aes-ctr", "-encryption_key", "76a6c65c5ea762046bd749a2e632ccbb",
                       "-encryption_kid", "a7e61c373e219033c21091fa607bf3b8"}));
}

std::string lateIndexClip(const ScratchFolder& folder) {
  return make(folder.file("late.mp4"), pattern({}));
}

std::string gappyClip(const ScratchFolder& folder) {
  return make(folder.file("gaps.avi"),
              {"-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=2", "-vf",
               "select=not(between(n\\,5\\,12))", "-fps_mode", "passthrough", "-c:v", "mjpeg"});
}

std::string linearFrame(const ScratchFolder& folder, const std::string& movie, double seconds, int width, int height) {
  // BMP, which says nothing of colour spaces. Every frame up to the time replaces the one before; the last stays.
  const std::string size = std::to_string(width) + ":" + std::to_string(height);
  const std::string select = "select='lte(t," + std::to_string(seconds + 0.0001) + ")',scale=" + size +
                             ":flags=bicubic+full_chroma_int+full_chroma_inp+accurate_rnd";
  return make(folder.file("linear.bmp"), {"-i", movie, "-map", "0:v:0", "-vsync", "passthrough", "-vf", select,
                                          "-pix_fmt", "bgr24", "-update", "1"});
}

}  // namespace vistrelle::testing
