#include "vistrelle/platform/web/web_reader.h"

#include <curl/curl.h>

#include <new>

#include "vistrelle/platform/base/format.h"

namespace vistrelle::platform {
namespace {

struct Cleanup {
  void operator()(CURL* handle) const { ::curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, Cleanup>;

struct Body {
  std::string bytes;
  std::size_t limit;
  std::size_t headerBytesLeft;
};

std::size_t collect(char* data, std::size_t size, std::size_t count, void* target) {
  auto* body = static_cast<Body*>(target);
  const std::size_t length = size * count;
  // Taking less than was offered ends the transfer.
  if (body->bytes.size() + length > body->limit) return 0;
  try {
    body->bytes.append(data, length);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return length;
}

/// Older libraries keep every line that comes.
std::size_t countHeader(char* /*data*/, std::size_t size, std::size_t count, void* target) {
  auto* body = static_cast<Body*>(target);
  const std::size_t length = size * count;
  if (length > body->headerBytesLeft) return 0;
  body->headerBytesLeft -= length;
  return length;
}

bool counts(long status) {
  return status == 101 || (status >= 200 && status < 400) || status == 401 || status == 407;
}

class CurlReader : public WebReader {
 public:
  explicit CurlReader(const WebLimits& limits) : limits_(limits) {
    static const CURLcode ready = ::curl_global_init(CURL_GLOBAL_DEFAULT);
    ready_ = ready == CURLE_OK;
  }

  WebAnswer read(const std::string& url) override {
    const Handle handle(ready_ ? ::curl_easy_init() : nullptr);
    if (!handle) return {std::nullopt, "no HTTP client"};
    Body body{{}, limits_.bytes, limits_.headerBytes};
    CURL* curl = handle.get();
    // An option that could not be set, as the list of protocols when memory is short, would leave everything allowed.
    CURLcode result = CURLE_OK;
    const auto set = [curl, &result](CURLoption option, auto value) {
      if (result == CURLE_OK) result = ::curl_easy_setopt(curl, option, value);
    };
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, limits_.redirections);
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(limits_.time.count()));
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits_.connecting.count()));
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits_.bytes));
    // The client's own alarms would hit the host's threads.
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_USERAGENT, "vistrelle");
    set(CURLOPT_WRITEFUNCTION, &collect);
    set(CURLOPT_WRITEDATA, &body);
    set(CURLOPT_HEADERFUNCTION, &countHeader);
    set(CURLOPT_HEADERDATA, &body);
    if (result == CURLE_OK) result = ::curl_easy_perform(curl);
    if (result != CURLE_OK) return {std::nullopt, ::curl_easy_strerror(result)};
    long status = 0;
    ::curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (!counts(status)) return {std::nullopt, format("status {}", status)};
    return {std::move(body.bytes), {}};
  }

 private:
  WebLimits limits_;
  bool ready_ = false;
};

}  // namespace

std::shared_ptr<WebReader> curlWebReader(const WebLimits& limits) {
  return std::make_shared<CurlReader>(limits);
}

Seam<WebReader>& webReader() {
  static Seam<WebReader> seam([] { return curlWebReader(); });
  return seam;
}

}  // namespace vistrelle::platform
