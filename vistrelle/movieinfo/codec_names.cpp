#include "vistrelle/movieinfo/codec_names.h"

#include <array>
#include <span>
#include <string_view>

#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {
namespace {

struct CodecName {
  std::string_view code;
  std::string_view name;
};

// The first row that matches counts; rows that never match are part of the tables. "dx50" stands twice, so that it is
// "divx"; a stored "rle " keeps its blank and its own name.
constexpr std::array<CodecName, 27> kVideoNames{{
    {"avc1", "h264"},       {"m2v", "mpeg2video"},  {"m2s", "mpeg2video"},  {"mp2v", "mpeg2video"},
    {"m2v1", "mpeg2video"}, {"hdv1", "mpeg2video"}, {"hdv2", "mpeg2video"}, {"hdv3", "mpeg2video"},
    {"m1v", "mpeg1video"},  {"mpeg", "mpeg1video"}, {"m1s", "mpeg1video"},  {"m1v1", "mpeg1video"},
    {"flv1", "flv"},        {"div3", "divx"},       {"div4", "divx"},       {"div5", "divx"},
    {"div6", "divx"},       {"div", "divx"},        {"dx45", "divx"},       {"dx50", "divx"},
    {"mp4v", "mpeg4"},      {"dx50", "mpeg4"},      {"xvid", "mpeg4"},      {"mp43", "msmpeg4"},
    {"mp42", "msmpeg4v2"},  {"rle", "qtrle"},       {"cvid", "cinepack"},
}};

// "aac " has lost its blank and "ms.U" its capital by the time they are compared.
constexpr std::array<CodecName, 13> kAudioNames{{
    {"mp4a", "aac"},
    {"aac ", "aac"},
    {".mp2", "mp2"},
    {".mp3", "mp3"},
    {"ms.U", "mp3"},
    {"twos", "pcm_s16be"},
    {"sowt", "pcm_s16le"},
    {"ima4", "adpcm_ima_qt"},
    {"wma2", "wmav2"},
    {"wma", "vc1"},
    {"wmva", "vc1"},
    {"ms .", "ac3"},
    {"ac-3", "ac3"},
}};

std::string named(const std::string& code, std::span<const CodecName> names) {
  for (const CodecName& row : names) {
    if (row.code == code) return std::string(row.name);
  }
  return code;
}

}  // namespace

std::string videoCodecName(const std::string& code) {
  return named(platform::lowercased(code), kVideoNames);
}

std::string audioCodecName(const std::string& code) {
  std::string lowered = platform::lowercased(code);
  if (lowered.ends_with(' ')) lowered.pop_back();
  return named(lowered, kAudioNames);
}

}  // namespace vistrelle
