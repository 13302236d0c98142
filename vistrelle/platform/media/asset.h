#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/media_time.h"
#include "vistrelle/platform/media/movie_metadata.h"
#include "vistrelle/platform/media/track_details.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

enum class MediaType { video, audio, subtitle, text, closedCaption, timecode, metadata, other };

/// Width and height in pixels, not rounded.
struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

/// A rectangle in pixels; the origin is the top left corner.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const Rect&) const = default;
};

/// What a track's samples are coded in.
struct FormatDescription {
  std::string code;         ///< four characters as the movie stores them, blanks included
  std::int32_t width = 0;   ///< encoded pixels; 0 when not video
  std::int32_t height = 0;  ///< encoded pixels; 0 when not video
  Rect cleanAperture;       ///< of encoded pixels; the whole picture where the movie states none
};

/// Which pixels of a frame a picture shows, and in which shape. All modes turn with the display transform.
enum class ApertureMode {
  cleanAperture,       ///< cropped to the clean aperture, square pixels (the default)
  productionAperture,  ///< the whole frame, square pixels
  encodedPixels        ///< the whole frame, pixels as encoded
};

/// The answer of an image generator: a picture with its own presentation time, or an error text.
struct FrameResult {
  std::shared_ptr<const Picture> picture;  ///< empty on failure
  MediaTime actualTime;                    ///< presentation time of the frame delivered; invalid on failure
  std::string error;                       ///< why there is no picture; may be empty
};

/// Delivers the frame that is on screen at a time. Used from one thread at a time.
class ImageGenerator {
 public:
  virtual ~ImageGenerator() = default;
  /// Turn and mirror pictures by the track's display transform (off at first).
  virtual void setAppliesPreferredTrackTransform(bool applies) = 0;
  virtual void setApertureMode(ApertureMode mode) = 0;
  /// Tells all times that copyFrame is going to be asked for, in that order, repeats included. A promise, not a
  /// limit: other times are answered too. Work that several of them share is then done once.
  virtual void announce(std::span<const MediaTime> times) = 0;
  /// The last frame whose presentation time is not after `time`; the first frame when all are later. A frame that
  /// cannot be proven to be that one is an error, never a near frame.
  virtual FrameResult copyFrame(const MediaTime& time) = 0;
};

/// One track of a movie. Facts only; a track stays usable as long as it is held, also after its movie is gone.
/// Attached cover pictures are not tracks.
class Track : public Opaque {
 public:
  /// The number the container gives it, from 1; unique in its movie.
  virtual std::int32_t trackId() const = 0;
  virtual MediaType mediaType() const = 0;
  /// Its four-character media type ("vide", "soun", "text", "tmcd" ...); absent when unknown.
  virtual OptionalText mediaTypeCode() const;
  /// In the order of the movie; empty when it states none.
  virtual std::vector<FormatDescription> formatDescriptions() const { return {}; }
  /// The presentation size before rotation; zero when it has no pictures.
  virtual Size naturalSize() const { return {}; }
  virtual bool isEnabled() const = 0;
  /// What its samples cover on the movie's timeline. Start or duration are invalid (their seconds are not a number)
  /// only when the track has no sample.
  virtual TimeRange timeRange() const = 0;
  /// Frames a second over the track's whole length; 0 when unknown or not video.
  virtual float nominalFrameRate() const = 0;
  /// Whether a decoder for it opens (always true for tracks that are neither audio nor video).
  virtual bool isDecodable() const = 0;
  /// Whether its samples are encrypted or otherwise protected.
  virtual bool isProtected() const { return false; }
  /// May decode its first frame; where the header cannot be true also all others.
  virtual TrackDetails details() const { return {}; }
  /// Delivers this track's pictures; nothing when it is no video track. Pictures that cannot be decoded are errors of
  /// the generator.
  virtual std::unique_ptr<ImageGenerator> makeImageGenerator() const { return nullptr; }
};

class AssetReader;

enum class AssetKind { urlAsset, composition, other };

/// A movie. Facts are complete once loading has ended; before that they are what is known so far (no track, zero
/// duration, not playable). All calls may come from any thread.
class Asset : public Opaque {
 public:
  virtual AssetKind kind() const = 0;
  /// Starts loading the facts named by `keys` ("playable", "hasProtectedContent", "tracks", "duration") and returns
  /// at once; `completion` is called exactly once, on another thread, when loading ended, failed or was cancelled.
  virtual void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) = 0;
  /// Ends loading as soon as possible. Needed before an asset that never finishes can be dropped.
  virtual void cancelLoading() = 0;
  /// In file order.
  virtual std::vector<std::shared_ptr<Track>> tracks() const = 0;
  virtual MediaTime duration() const = 0;
  /// Every audio and video track has a decoder that opens, and there is at least one of them.
  virtual bool isPlayable() const = 0;
  /// Encrypted or otherwise protected samples.
  virtual bool hasProtectedContent() const = 0;
  /// Nothing when there is no video track. Pictures that cannot be decoded are errors of the generator.
  virtual std::unique_ptr<ImageGenerator> makeImageGenerator() = 0;
  /// The natural size of its first video track; zero without one.
  virtual Size naturalSize() const;
  /// As the movie's header states, whatever its samples say; invalid when it states none.
  virtual MediaTime headerDuration() const { return MediaTime::invalid(); }
  virtual MovieMetadata metadata() const { return {}; }
  /// Reads samples as stored. Nothing with an error text when the movie cannot be read again.
  virtual std::unique_ptr<AssetReader> makeReader(std::string* error);
};

struct OpenOptions {
  bool preciseTiming = false;
};

/// Opens movies.
class MediaLibrary {
 public:
  virtual ~MediaLibrary() = default;
  /// An asset for the file, not loaded yet; empty when it cannot even be opened as a regular file. Never blocks on
  /// a FIFO or device, never follows the name as anything but a path.
  virtual std::shared_ptr<Asset> openAsset(const std::string& path, const OpenOptions& options) = 0;
};

Seam<MediaLibrary>& mediaLibrary();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
