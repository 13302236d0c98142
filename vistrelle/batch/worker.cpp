#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "vistrelle/batch/performing.h"
#include "vistrelle/platform/base/json_text.h"
#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/jobs/private_folder.h"
#include "vistrelle/platform/media/confined/confined_library.h"
#include "vistrelle/platform/media/confined/decoding_libraries.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::TaskAnswer;
using platform::Value;

constexpr const char* kClean = "clean";
constexpr std::chrono::seconds kPatience{8};  // with a worker that was killed a moment ago

/// What a worker has for its life.
struct Equipment {
  std::shared_ptr<JobRecord> record = std::make_shared<JobRecord>();
  bool isConfined = false;
  WorkerOrders orders;
};

std::shared_ptr<platform::MediaLibrary> mediaLibraryOf(Equipment& equipment) {
#if defined(__SANITIZE_THREAD__)  // whose runtime has a thread of its own before main
  equipment.isConfined = true;
  return platform::mediaLibrary().get();
#else
  auto library = std::make_shared<platform::ConfinedMediaLibrary>();
  equipment.isConfined = library->prepare();
  return library;
#endif
}

std::shared_ptr<Equipment> equip(const WorkerOrders& orders) {
  // Nobody is there to answer a dialog.
  ::unsetenv("DISPLAY");
  ::unsetenv("WAYLAND_DISPLAY");
  auto equipment = std::make_shared<Equipment>();
  equipment->orders = orders;
  const auto log = platform::logSink().get();
  platform::logSink().install(recordingLog(orders.isVerbose ? log : nullptr, equipment->record));
  platform::fileManager().install(recordingFiles(platform::fileManager().get(), equipment->record));
  platform::mediaLibrary().install(recordingLibrary(mediaLibraryOf(*equipment), equipment->record));
  return equipment;
}

Outcome outcomeOf(const BatchJob& job, Equipment& equipment) {
  if (!equipment.isConfined) return {kTemporaryFailure, "no process for a decoder", {}, 0};
  try {
    Outcome outcome = performJob(job, *equipment.record);
    const bool wasRefused = equipment.orders.wasMemoryRefused != nullptr && equipment.orders.wasMemoryRefused();
    if (!wasRefused || outcome.isSuccess()) return outcome;
  } catch (const std::bad_alloc&) {
  }
  return {kTemporaryFailure, "out of memory", {}, 0};
}

/// A worker that cannot be trusted any more, or has nobody left to decode for it, is not kept.
bool isWornOut(const Outcome& outcome, const Equipment& equipment) {
  const bool wasRefused = equipment.orders.wasMemoryRefused != nullptr && equipment.orders.wasMemoryRefused();
  return wasRefused || outcome.status == kTemporaryFailure;
}

TaskAnswer answerTo(std::string_view task, Equipment& equipment) {
  const std::string line(task);
  std::string error;
  const std::optional<BatchJob> job = readJob(line, &error);
  if (!job) {
    const auto value = platform::readJson(line, &error);
    const auto* fields = value ? value->get<Dictionary>() : nullptr;
    const auto found = fields == nullptr ? Dictionary::const_iterator() : fields->find(kClean);
    const auto* path = fields == nullptr || found == fields->end() ? nullptr : found->second.get<std::string>();
    if (path != nullptr) platform::PrivateFolder::removeRest(*path, kPatience);
    return {"{}", false};
  }
  equipment.record->clear();
  const auto begin = std::chrono::steady_clock::now();
  Outcome outcome = outcomeOf(*job, equipment);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return {platform::jsonLine(Value(reportFields(outcome, *job))), isWornOut(outcome, equipment)};
}

}  // namespace

std::string cleaningTask(const BatchJob& job) {
  return platform::jsonLine(Value(Dictionary{{kClean, job.privateFolder()}}));
}

void loadBatchLibraries() {
  // Jobs are what the processors are shared out to; a job has one.
  platform::limitProcessorShare(1);
  platform::loadDecodingLibraries();
  // The first picture of a process loads the JPEG library and works out the colour profile.
  if (const auto raster = platform::Bitmap::make(16, 16)) (void)platform::encodeJpeg(*raster, 60);
}

platform::WorkerSetup workerSetup(const WorkerOrders& orders) {
  return [orders]() -> platform::TaskBody {
    const std::shared_ptr<Equipment> equipment = equip(orders);
    return [equipment](std::string_view task) { return answerTo(task, *equipment); };
  };
}

}  // namespace vistrelle
