#include "vistrelle/batch/batch.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <utility>

#include "vistrelle/batch/job.h"
#include "vistrelle/batch/ledger.h"
#include "vistrelle/batch/outcome.h"
#include "vistrelle/batch/progress.h"
#include "vistrelle/platform/base/json_text.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/jobs/line_source.h"
#include "vistrelle/platform/jobs/report_file.h"
#include "vistrelle/platform/jobs/stop_signals.h"
#include "vistrelle/platform/media/confined/refused_memory.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::LineSource;
using platform::ReportFile;
using platform::TaskEnd;
using platform::Value;
using Clock = std::chrono::steady_clock;

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr std::chrono::seconds kGrace{5};      // for jobs at work when the batch is told to stop
constexpr std::chrono::seconds kCleaning{10};  // for what they leave behind
constexpr int kDrawMilliseconds = 250;
constexpr int kRetryMilliseconds = 100;

/// A line of the list on its way.
struct Entry {
  std::uint64_t line = 0;
  std::string text;
  std::string id;
  std::optional<BatchJob> job;
  Clock::time_point begin;
  bool isCleaning = false;  ///< after a job whose line has been written
};

class Batch {
 public:
  Batch(const BatchOptions& options, const WorkerOrders& orders, LineSource source, std::unique_ptr<ReportFile> report,
        Ledger ledger)
      : options_(options),
        source_(std::move(source)),
        report_(std::move(report)),
        ledger_(std::move(ledger)),
        isTerminal_(::isatty(STDERR_FILENO) == 1 && !options.isVerbose),
        progress_(isTerminal_, isTerminal_ ? source_.countLines() : std::nullopt),
        pool_(workerSetup(orders), {options.jobs, options.timeout, options.memoryBytes}) {}

  int run() {
    while (!isOver()) {
      progress_.draw();
      giveOut();
      if (!isOver()) wait();
      take(pool_.collect());
      lookAtSignals();
    }
    progress_.clear();
    sayEnd();
    return isEverythingFine() ? kSuccess : kFailure;
  }

 private:
  bool isOver() const { return pool_.running() == 0 && !next_ && cleaning_.empty() && (hasEnded_ || isStopping()); }
  bool isStopping() const { return stopSignal_ != 0 || isReportLost_ || sourceError_ != 0; }
  bool isEverythingFine() const { return failed_ == 0 && !isStopping(); }

  // ---- from the list to the workers ----------------------------------------------------------------------------
  void giveOut() {
    while (pool_.hasRoom()) {
      if (!cleaning_.empty()) {
        if (!clean()) return;
        continue;
      }
      if (isStopping()) next_.reset();
      if (isStopping() || (!next_ && !fetch())) return;
      if (isBlocked(*next_) || !begin()) return;
    }
  }

  /// Fills `next_` with the next job that has to be done. False when there is none now.
  bool fetch() {
    std::string text;
    while (!hasEnded_ && !isStopping()) {
      switch (source_.next(&text)) {
        case LineSource::Status::wait:
          return false;
        case LineSource::Status::end:
          hasEnded_ = true;
          return false;
        case LineSource::Status::failed:
          sourceError_ = source_.error();
          return false;
        case LineSource::Status::tooLong:
          refuse({source_.number(), {}, textId(text), {}, {}, false}, "the line is too long");
          break;
        case LineSource::Status::line:
          if (accept(text)) return true;
          break;
      }
    }
    return false;
  }

  /// False when the line is dealt with.
  bool accept(const std::string& text) {
    if (text.find_first_not_of(" \t") == std::string::npos) return false;
    Entry entry{source_.number(), text, {}, {}, {}, false};
    std::string error;
    entry.job = readJob(text, &error);
    entry.id = entry.job ? entry.job->id() : textId(text);
    const auto claim = entry.job ? ledger_.claim(*entry.job, entry.line) : Ledger::Claim::free;
    if (ledger_.takeFinished(entry.id)) {
      ++skipped_;
      progress_.countSkipped();
      return false;
    }
    if (claim == Ledger::Claim::conflict) {
      error = platform::format("the destination is that of line {}", ledger_.holder(*entry.job));
    }
    if (!error.empty()) {
      refuse(entry, error);
      return false;
    }
    next_ = std::move(entry);
    return true;
  }

  void refuse(const Entry& entry, const std::string& reason) { write(entry, {kBadInput, reason, {}, 0}); }

  /// Whether an equal job is at work: this one is to find its pictures.
  bool isBlocked(const Entry& entry) const {
    return std::ranges::any_of(entries_, [&](const auto& other) { return other.second.id == entry.id; });
  }

  /// False when no process could be had for now.
  bool begin() {
    next_->begin = Clock::now();
    if (pool_.start(++tasks_, next_->text)) {
      entries_.emplace(tasks_, std::move(*next_));
      next_.reset();
      return true;
    }
    if (pool_.running() > 0) return false;
    write(*next_, {kTemporaryFailure, "no process could be made", {}, 0});
    next_.reset();
    return true;
  }

  bool clean() {
    Entry entry = std::move(cleaning_.back());
    cleaning_.pop_back();
    if (!pool_.start(++tasks_, cleaningTask(*entry.job))) return pool_.running() == 0;
    entry.isCleaning = true;
    entries_.emplace(tasks_, std::move(entry));
    return true;
  }

  // ---- and back ------------------------------------------------------------------------------------------------
  void take(std::vector<TaskEnd> ends) {
    for (TaskEnd& end : ends) {
      auto node = entries_.extract(end.task);
      if (node.empty() || node.mapped().isCleaning) continue;
      Entry& entry = node.mapped();
      if (end.how == TaskEnd::How::answered) {
        takeAnswer(entry, end.text);
      } else {
        write(entry, outcomeOf(end, entry));
        cleaning_.push_back(std::move(entry));
      }
    }
  }

  Outcome outcomeOf(const TaskEnd& end, const Entry& entry) const {
    const double seconds = std::chrono::duration<double>(Clock::now() - entry.begin).count();
    switch (end.how) {
      case TaskEnd::How::timedOut:
        return {kTimeout, "the job took too long", {}, seconds};
      case TaskEnd::How::cancelled:
        return {kTemporaryFailure, platform::format("cancelled ({})", ::strsignal(stopSignal_)), {}, seconds};
      default:
        break;
    }
    if (end.text == platform::format("status {}", platform::kOutOfMemoryStatus)) {
      return {kTemporaryFailure, "out of memory", {}, seconds};
    }
    return {kCrashed, platform::format("the worker ended: {}", end.text), {}, seconds};
  }

  void takeAnswer(const Entry& entry, const std::string& answer) {
    std::string error;
    const auto value = platform::readJson(answer, &error);
    const auto* fields = value ? value->get<Dictionary>() : nullptr;
    const auto status = fields == nullptr ? Dictionary::const_iterator() : fields->find("status");
    const auto* text = fields == nullptr || status == fields->end() ? nullptr : status->second.get<std::string>();
    if (text == nullptr) return write(entry, {kCrashed, "the worker gave no sensible answer", {}, 0});
    writeFields(entry, *fields, *text);
  }

  void write(const Entry& entry, const Outcome& outcome) {
    writeFields(entry, reportFields(outcome, entry.job.value_or(BatchJob())), outcome.status);
  }

  void writeFields(const Entry& entry, Dictionary fields, const std::string& status) {
    const NamedPaths paths = namedPaths(entry.text);
    fields.insert_or_assign("line", static_cast<std::int64_t>(entry.line));
    fields.insert_or_assign("id", entry.id);
    if (paths.source) fields.insert_or_assign("source", *paths.source);
    if (paths.destination) fields.insert_or_assign("destination", *paths.destination);
    const bool isSuccess = status == kDone || status == kExists;
    ++ended_[status];
    if (!isSuccess) ++failed_;
    progress_.count(isSuccess);
    if (report_->isTerminal()) progress_.clear();
    if (!isReportLost_ && !report_->append(platform::jsonLine(Value(std::move(fields))))) {
      isReportLost_ = true;
      reportError_ = errno;
    }
  }

  // ---- waiting and stopping ------------------------------------------------------------------------------------
  void wait() {
    std::vector<pollfd> descriptors{{signals_.descriptor(), POLLIN, 0}};
    if (pool_.hasRoom() && !next_ && !hasEnded_ && !isStopping()) {
      descriptors.push_back({source_.descriptor(), POLLIN, 0});
    }
    pool_.addDescriptors(&descriptors);
    ::poll(descriptors.data(), descriptors.size(), millisecondsLeft());
  }

  int millisecondsLeft() const {
    int left = pool_.millisecondsLeft();
    const auto atMost = [&left](std::int64_t milliseconds) {
      if (left < 0 || milliseconds < left) left = static_cast<int>(std::max<std::int64_t>(milliseconds, 0));
    };
    if (isTerminal_) atMost(kDrawMilliseconds);
    if (next_ && pool_.hasRoom() && !isBlocked(*next_)) atMost(kRetryMilliseconds);  // for a process to be had
    if (stopSignal_ != 0) {
      atMost(std::chrono::ceil<std::chrono::milliseconds>(cancelAt_ - Clock::now()).count());
    }
    return left;
  }

  void lookAtSignals() {
    while (const int signal = signals_.take()) {
      cancelAt_ = stopSignal_ == 0 ? Clock::now() + kGrace : Clock::now();  // the second one does not wait
      stopSignal_ = stopSignal_ == 0 ? signal : stopSignal_;
    }
    if (isReportLost_ && stopSignal_ == 0) stop(SIGPIPE);
    if (stopSignal_ == 0 || Clock::now() < cancelAt_) return;
    take(pool_.cancelAll());
    // What is left now is cleaning up, which may take a while too, but not for ever.
    if (std::exchange(isCancelled_, true)) cleaning_.clear();
    cancelAt_ = Clock::now() + kCleaning;
  }

  void stop(int signal) {
    stopSignal_ = signal;
    cancelAt_ = Clock::now();
  }

  void sayEnd() const {
    const auto count = [this](const char* status) {
      const auto found = ended_.find(status);
      return found == ended_.end() ? std::uint64_t{0} : found->second;
    };
    if (sourceError_ != 0) platform::plain("Error          : {}: {}\n", options_.list, std::strerror(sourceError_));
    if (isReportLost_) platform::plain("Error          : report: {}\n", std::strerror(reportError_));
    if (stopSignal_ != 0 && !isReportLost_) platform::plain("stopped        : {}\n", ::strsignal(stopSignal_));
    platform::plain("jobs           : {} done, {} exist, {} bad input, {} temporary failures, {} timeouts, {} crashed",
                    count(kDone), count(kExists), count(kBadInput), count(kTemporaryFailure), count(kTimeout),
                    count(kCrashed));
    if (skipped_ > 0) platform::plain(", {} finished before", skipped_);
    platform::plain("\n");
  }

  const BatchOptions& options_;
  platform::StopSignals signals_;
  LineSource source_;
  std::unique_ptr<ReportFile> report_;
  Ledger ledger_;
  bool isTerminal_;
  Progress progress_;
  platform::WorkerPool pool_;

  std::optional<Entry> next_;
  std::map<std::uint64_t, Entry> entries_;  // at work, by task
  std::vector<Entry> cleaning_;             // what killed workers left is still to be removed
  std::uint64_t tasks_ = 0;
  std::map<std::string, std::uint64_t> ended_;
  std::uint64_t failed_ = 0;
  std::uint64_t skipped_ = 0;
  bool hasEnded_ = false;
  int sourceError_ = 0;
  bool isReportLost_ = false;
  int reportError_ = 0;
  int stopSignal_ = 0;
  bool isCancelled_ = false;
  Clock::time_point cancelAt_ = Clock::time_point::max();
};

platform::UniqueFd openList(const std::string& list) {
  if (list == "-") return platform::UniqueFd(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return platform::UniqueFd(::open(list.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
}

std::unique_ptr<ReportFile> openReport(const BatchOptions& options, Ledger* ledger, std::string* error) {
  if (options.report) return ReportFile::make(*options.report, error);
  if (!options.resume) return ReportFile::standardOutput();
  return ReportFile::goOn(
      *options.resume, [ledger](const std::string& line) { return ledger->addReported(line); }, error);
}

}  // namespace

int runBatch(const BatchOptions& options, const WorkerOrders& orders) {
  platform::UniqueFd list = openList(options.list);
  if (!list) {
    platform::plain("Error          : {}: {}\n", options.list, std::strerror(errno));
    return kFailure;
  }
  Ledger ledger;
  std::string error;
  auto report = openReport(options, &ledger, &error);
  if (!report) {
    platform::plain("Error          : {}: {}\n", options.report ? *options.report : *options.resume, error);
    return kFailure;
  }
  loadBatchLibraries();
  return Batch(options, orders, LineSource(std::move(list)), std::move(report), std::move(ledger)).run();
}

int batchMain(int argc, const char* const* argv, bool (*wasMemoryRefused)()) {
  std::string error;
  const auto options = readBatchOptions(std::vector<std::string>(argv + std::min(argc, 1), argv + argc), &error);
  if (!options) {
    platform::plain("Error          : {}\n{}", error, batchUsage());
    return kFailure;
  }
  if (options->wantsHelp || options->wantsVersion) {
    const std::string text = options->wantsHelp ? batchUsage() : "vistrelle-batch 1.4\n";
    return ::write(STDOUT_FILENO, text.data(), text.size()) == std::ssize(text) ? kSuccess : kFailure;
  }
  return runBatch(*options, {options->isVerbose, wasMemoryRefused});
}

}  // namespace vistrelle
