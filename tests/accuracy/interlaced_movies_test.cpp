// Stills of interlaced movies, through the tool: no combs where the stream says that its frames hold two moments.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::testing {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 192;
constexpr int kBars = 90;  // lines, those at the border to the pattern left out

/// Above bars that move eight pixels from field to field; the fields of two moments are woven into one frame. Below a
/// still pattern, without which pictures are too small to be kept.
std::string woven(const ScratchFolder& folder, const std::string& name, const std::vector<std::string>& coding) {
  std::vector<std::string> command = {
      "ffmpeg",
      "-nostdin",
      "-v",
      "error",
      "-y",
      "-f",
      "lavfi",
      "-i",
      "color=gray:size=320x192:rate=50:duration=1,format=yuv420p,"
      "geq=lum='if(lt(Y,96),if(lt(mod(X+8*N,128),64),200,40),128+100*sin(X*X+13*Y*Y))':cb=128:cr=128",
      "-vf",
      "tinterlace=mode=interleave_top",
      "-r",
      "25"};
  command.insert(command.end(), coding.begin(), coding.end());
  command.push_back(folder.file(name));
  const RunResult run = runProgram(command);
  EXPECT_EQ(run.status, 0) << run.error;
  return folder.file(name);
}

/// How much a pixel of the bars differs from those above and below it on average: combs, nothing else here.
double combsOf(const std::string& movie, const ScratchFolder& folder) {
  const std::string out = folder.file("still.png");
  const RunResult run = runTool(
      {"-i", movie, "-o", out, "-w", std::to_string(kWidth), "-h", std::to_string(kHeight), "-tc", "0.4", "-y"});
  EXPECT_EQ(run.status, 0) << run.error;
  const auto picture = platform::Picture::load(out);
  if (!picture || picture->bitmap() == nullptr) return -1;
  const platform::Bitmap& raster = *picture->bitmap();
  double sum = 0;
  for (int y = 1; y < kBars; ++y) {
    for (int x = 0; x < raster.width(); ++x) {
      const auto at = [&](int line) { return int{raster.row(line)[4 * x + 1]}; };
      sum += std::abs(2 * at(y) - at(y - 1) - at(y + 1));
    }
  }
  return sum / (raster.width() * (kBars - 1));
}

TEST(InterlacedMovies, HaveNoCombs) {
  const ScratchFolder folder;
  const std::vector<std::string> h264{"-c:v", "libx264", "-qp", "4", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};
  std::vector<std::string> fields = h264;
  fields.insert(fields.end(), {"-flags", "+ildct+ilme", "-x264-params", "tff=1"});
  EXPECT_LT(combsOf(woven(folder, "fields.mp4", fields), folder), 2);
  EXPECT_LT(
      combsOf(woven(folder, "fields.ts",
                    {"-c:v", "mpeg2video", "-q:v", "1", "-flags", "+ildct+ilme", "-top", "1", "-field_order", "tt"}),
              folder),
      2);
  EXPECT_LT(
      combsOf(woven(folder, "fields.mov", {"-c:v", "prores", "-flags", "+ildct", "-top", "1", "-field_order", "tt"}),
              folder),
      2);
  // Frames that call themselves whole are shown as they are.
  EXPECT_GT(combsOf(woven(folder, "whole.mp4", h264), folder), 20);
}

}  // namespace
}  // namespace vistrelle::testing
