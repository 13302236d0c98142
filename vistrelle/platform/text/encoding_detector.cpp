#include <dlfcn.h>
#include <unicode/ucsdet.h>

#include <memory>
#include <string_view>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/text/encoding_icu.h"

// ICU renames its functions with their version.
#define VISTRELLE_TEXT_OF(name) #name
#define VISTRELLE_NAME_OF(name) VISTRELLE_TEXT_OF(name)

namespace vistrelle::platform {
namespace {

constexpr int kLeastConfidence = 50;
// More of a file than this tells the detector nothing new.
constexpr std::size_t kDetectionBytes = std::size_t{1} << 20U;

/// The detector's functions. Their library is loaded at the first use: a program that only might have to read a text
/// of unknown encoding would pay for it at every start.
struct DetectorLibrary {
  decltype(&::ucsdet_open) open = nullptr;
  decltype(&::ucsdet_close) close = nullptr;
  decltype(&::ucsdet_setText) setText = nullptr;
  decltype(&::ucsdet_detect) detect = nullptr;
  decltype(&::ucsdet_getConfidence) getConfidence = nullptr;
  decltype(&::ucsdet_getName) getName = nullptr;

  DetectorLibrary() {
    void* library = ::dlopen("libicui18n.so." U_ICU_VERSION_SHORT, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      log("encoding detector   :-( {}", ::dlerror());
      return;
    }
    find(library, VISTRELLE_NAME_OF(ucsdet_open), open);
    find(library, VISTRELLE_NAME_OF(ucsdet_close), close);
    find(library, VISTRELLE_NAME_OF(ucsdet_setText), setText);
    find(library, VISTRELLE_NAME_OF(ucsdet_detect), detect);
    find(library, VISTRELLE_NAME_OF(ucsdet_getConfidence), getConfidence);
    find(library, VISTRELLE_NAME_OF(ucsdet_getName), getName);
  }
  bool complete() const { return open && close && setText && detect && getConfidence && getName; }

 private:
  template <typename Function>
  static void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
  }
};

const DetectorLibrary& detectorLibrary() {
  static const DetectorLibrary library;
  return library;
}

}  // namespace

EncodingNumber detectWithIcu(std::string_view bytes) {
  const DetectorLibrary& icu = detectorLibrary();
  if (!icu.complete()) return kNoEncoding;
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UCharsetDetector, decltype(icu.close)> detector(icu.open(&status), icu.close);
  if (U_FAILURE(status)) return kNoEncoding;
  const std::string_view sample = bytes.substr(0, kDetectionBytes);
  icu.setText(detector.get(), sample.data(), static_cast<std::int32_t>(sample.size()), &status);
  const UCharsetMatch* match = icu.detect(detector.get(), &status);
  if (U_FAILURE(status) || !match || icu.getConfidence(match, &status) < kLeastConfidence) return kNoEncoding;
  const std::string_view name = icu.getName(match, &status);
  if (name == "Shift_JIS") return kShiftJisEncoding;
  if (name == "EUC-JP") return kEucJpEncoding;
  return name == "ISO-8859-1" ? kLatin1Encoding : kNoEncoding;
}

}  // namespace vistrelle::platform
