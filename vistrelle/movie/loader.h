#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/movie/queries.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/composition.h"

#pragma GCC visibility push(default)

/// The three process-wide movie slots and the loader that fills them. One thread at a time; there is no lock.
namespace vistrelle {

/// A movie that can be edited; empty for none.
using Composition = std::shared_ptr<platform::Composition>;

/// What a slot holds; empty when nothing. A setter leaves the slot's path as it is.
Movie MYMOVIEget();
void MYMOVIEset(const Movie& movie);
Movie MYMOVIEVIEWget();
void MYMOVIEVIEWset(const Movie& movie);
Composition MYMOVIEEDITget();
void MYMOVIEEDITset(const Composition& composition);

/// The standardized path the slot's movie was opened from; absent when it came from a setter.
platform::OptionalText MYMOVIEpathGet();
void MYMOVIEpathSet(const platform::OptionalText& path);
platform::OptionalText MYMOVIEVIEWpathGet();
void MYMOVIEVIEWpathSet(const platform::OptionalText& path);

/// Empties a slot together with its path. An empty slot is left alone, without a log line.
void MYMOVIErelease();
void MYMOVIEVIEWrelease();
void MYMOVIEEDITrelease();

/// Whether the loading of the last requested movie has signalled its end. The loading of an earlier movie never
/// changes it.
bool movieLoadedFlag();
void movieLoadedFlagSet(bool loaded);

/// What is loaded of every movie: "playable", "hasProtectedContent", "tracks", "duration".
const std::vector<std::string>& movieLoadKeys();

/// Opens the file at `path` into MYMOVIEVIEW (`view`) or MYMOVIE, or keeps the movie that is there when it was opened
/// from the same path. Waits about 20 seconds at most for its loading. False when the movie cannot be used; then the
/// slot is empty. A protected movie is accepted, so that its information can be read.
bool MYMOVIEinstantiate(const platform::OptionalText& path, bool precise, bool view);
/// The two fixed forms: without precise timing into MYMOVIEVIEW, and into MYMOVIE.
bool MYMOVIEVIEWinstantiate(const platform::OptionalText& path);
bool MYMOVIEinstantiateCurrent(const platform::OptionalText& path);

/// Opens the file at `path` into MYMOVIE unless it already sits there; false when it cannot be used.
bool movieLoad(const platform::OptionalText& path);

/// Opens the file at `path` into MYMOVIE and gives its frame rate; 0 when it cannot be opened. `unused` is ignored.
float movieFramerateAtPath(const platform::OptionalText& path, signed char unused);

}  // namespace vistrelle

#pragma GCC visibility pop
