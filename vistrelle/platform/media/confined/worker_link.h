#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/media/confined/messages.h"
#include "vistrelle/platform/media/confined/nursery.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// The user's end of the connection to one worker: asks, and gives the worker meanwhile what it may have. Whatever
/// is not as agreed ends the worker. Used from one thread at a time, except stop().
class WorkerLink {
 public:
  struct Patience {
    std::chrono::milliseconds silence;
    std::chrono::milliseconds longestAnswer;
  };

  WorkerLink(std::shared_ptr<Nursery> nursery, Worker worker, Patience patience);
  /// Ends the worker.
  ~WorkerLink();
  WorkerLink(const WorkerLink&) = delete;
  WorkerLink& operator=(const WorkerLink&) = delete;

  /// Hands the movie over. The worker's answers follow.
  bool open(std::shared_ptr<InputFile> file, const std::string& name);
  bool send(const Message& message, int descriptor = -1);
  /// The first message that is an answer; nothing when there is none: then the link is of no use any more and
  /// failure() tells why.
  std::optional<Message> answer();
  /// The next message of an answer of several, for which all of them together have the time of one.
  std::optional<Message> furtherAnswer();
  /// Gives up: what came is no answer to what was asked.
  void reject(const char* what);
  /// The picture room that the worker filled last; empty when it asked for none since the last call.
  std::unique_ptr<PictureRoom> takeRoom() { return std::exchange(room_, nullptr); }

  bool isUsable() const { return !hasFailed_; }
  const std::string& failure() const { return failure_; }
  /// Makes a waiting answer() end. From any thread.
  void stop() const { worker_.channel.shutDown(); }
  pid_t process() const { return worker_.process; }

 private:
  enum class Served { yes, answer, refused };
  Served serve(Message& message);
  bool sayWalls(const Message& message) const;
  bool forwardLine(const Message& message);
  bool grantRoom(const Message& message);
  bool grantReference(const Message& message);
  bool grantWaitingRoom();
  void fail(std::string reason);

  std::shared_ptr<Nursery> nursery_;
  Worker worker_;
  Patience patience_;
  std::shared_ptr<InputFile> file_;
  std::unique_ptr<PictureRoom> room_;
  bool hasGreeted_ = false;
  bool hasFailed_ = false;
  bool hasEnded_ = false;
  int linesOfAnswer_ = 0;
  int roomsOfAnswer_ = 0;
  std::chrono::steady_clock::time_point startOfAnswer_;
  int references_ = 0;
  int waitingRooms_ = 0;
  std::string failure_;
};

}  // namespace vistrelle::platform
