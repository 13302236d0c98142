#include "vistrelle/platform/media/mov/language.h"

#include <array>

namespace vistrelle::platform::mov {
namespace {

// QuickTime File Format, "Language code values", 0 to 94; empty where no language of ISO 639-2 is meant.
constexpr std::array<const char*, 95> kNumbered = {
    "eng", "fra", "deu", "ita", "nld", "swe", "spa", "dan", "por", "nor", "heb", "jpn", "ara", "fin", "ell", "isl",
    "mlt", "tur", "hrv", "zho", "urd", "hin", "tha", "kor", "lit", "pol", "hun", "est", "lav", "sme", "fao", "fas",
    "rus", "zho", "nld", "gle", "sqi", "ron", "ces", "slk", "slv", "yid", "srp", "mkd", "bul", "ukr", "bel", "uzb",
    "kaz", "aze", "aze", "hye", "kat", "ron", "kir", "tgk", "tuk", "mon", "mon", "pus", "kur", "kas", "snd", "bod",
    "nep", "san", "mar", "ben", "asm", "guj", "pan", "ori", "mal", "kan", "tam", "tel", "sin", "mya", "khm", "lao",
    "vie", "ind", "tgl", "msa", "msa", "amh", "tir", "orm", "som", "swa", "kin", "run", "nya", "mlg", "epo"};
constexpr std::uint16_t kFirstPacked = 0x400;
constexpr std::uint16_t kWelsh = 128;
constexpr const char* kUndetermined = "und";

}  // namespace

std::string languageText(std::uint16_t code) {
  if (code < kNumbered.size()) return kNumbered[code];
  if (code == kWelsh) return "cym";
  if (code < kFirstPacked) return kUndetermined;
  std::string text;
  for (const int shift : {10, 5, 0}) {
    const int letter = code >> shift & 0x1f;
    if (letter < 1 || letter > 26) return kUndetermined;
    text += static_cast<char>('a' + letter - 1);
  }
  return text;
}

}  // namespace vistrelle::platform::mov
