#pragma once

#include <string>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// What a movie says about itself, grouped as hosts ask for it. Texts come as stored, control characters included.
struct MovieMetadata {
  List common;          ///< one dictionary an entry, keys in docs/information.md
  List formats;         ///< texts: the kinds of metadata that are present, in the order they were met
  List chapterLocales;  ///< texts: languages of the chapter titles
  OptionalText lyrics;
};

/// One entry as stored.
struct MetadataItem {
  std::string keySpace;  ///< "udta", "mdta", "ilst", "3gpp", "matroska", "id3", else the container's short name
  std::string key;       ///< UTF-8; the sign 0xa9 of QuickTime keys is U+00A9
  std::string locale;    ///< as stored; empty for none
  Value value = "";
};

/// Notes the item's format. An item whose key stands for a common one (docs/information.md) becomes an entry of
/// `common`, 1,000 at most; the first text of lyrics is the lyrics.
void addMetadata(MovieMetadata& metadata, MetadataItem item);

/// Notes a language of chapter titles, once. An empty one is "und".
void addChapterLocale(MovieMetadata& metadata, std::string locale);

}  // namespace vistrelle::platform

#pragma GCC visibility pop
