#include "vistrelle/movie/slots.h"

#include <utility>

#include "vistrelle/cli/diagnostics.h"

namespace vistrelle {
namespace {

/// Never destroyed: a loading that hangs at the end of the process must not hold up its exit.
struct State {
  MovieSlot current;
  MovieSlot view;
  Composition edit;
  std::shared_ptr<LoadRequest> load = std::make_shared<LoadRequest>();
};

State& state() {
  static auto* const instance = new State;
  return *instance;
}

/// Puts `movie` (perhaps nothing) in the slot; a former one that is still loading is called off.
void put(MovieSlot& slot, const Movie& movie) {
  if (slot.movie == movie) return;
  if (slot.unfinished) {
    slot.unfinished->abandoned = true;
    slot.movie->cancelLoading();
    slot.unfinished = nullptr;
  }
  slot.movie = movie;
}

void empty(MovieSlot& slot) {
  put(slot, nullptr);
  slot.path = std::nullopt;
}

}  // namespace

MovieSlot& currentSlot() {
  return state().current;
}
MovieSlot& viewSlot() {
  return state().view;
}
void setCurrentLoad(std::shared_ptr<LoadRequest> request) {
  state().load = std::move(request);
}

Movie MYMOVIEget() {
  return currentSlot().movie;
}
void MYMOVIEset(const Movie& movie) {
  put(currentSlot(), movie);
}
Movie MYMOVIEVIEWget() {
  return viewSlot().movie;
}
void MYMOVIEVIEWset(const Movie& movie) {
  put(viewSlot(), movie);
}
Composition MYMOVIEEDITget() {
  return state().edit;
}
void MYMOVIEEDITset(const Composition& composition) {
  state().edit = composition;
}

platform::OptionalText MYMOVIEpathGet() {
  return currentSlot().path;
}
void MYMOVIEpathSet(const platform::OptionalText& path) {
  currentSlot().path = path;
}
platform::OptionalText MYMOVIEVIEWpathGet() {
  return viewSlot().path;
}
void MYMOVIEVIEWpathSet(const platform::OptionalText& path) {
  viewSlot().path = path;
}

bool movieLoadedFlag() {
  return state().load->loaded.isSet();
}
void movieLoadedFlagSet(bool loaded) {
  state().load->loaded.set(loaded);
}

void MYMOVIErelease() {
  if (!currentSlot().movie) return;
  log("MYMOVIE             : loaded");
  empty(currentSlot());
  log("MYMOVIE             : no more loaded");
}

void MYMOVIEVIEWrelease() {
  if (!viewSlot().movie) return;
  log("MYMOVIEVIEW         : loaded");
  empty(viewSlot());
  log("MYMOVIEVIEW         : no more loaded");
}

void MYMOVIEEDITrelease() {
  if (!state().edit) return;
  log("MYMOVIEEDIT         : loaded");
  state().edit = nullptr;
  log("MYMOVIEEDIT         : no more loaded");
}

}  // namespace vistrelle
