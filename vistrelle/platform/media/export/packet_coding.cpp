#include "vistrelle/platform/media/export/packet_coding.h"

#include <algorithm>
#include <cstring>

#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {
namespace {

/// The filter a stream's packets go through; none for most.
const char* filterOf(const AVCodecParameters& parameters, bool isPackedAvi) {
  // AAC without a configuration comes with a header on each packet.
  if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size == 0) return "aac_adtstoasc";
  if (parameters.codec_id == AV_CODEC_ID_MPEG4 && isPackedAvi) return "mpeg4_unpack_bframes";
  return nullptr;
}

bool beginsWithStartCode(const AVCodecParameters& parameters) {
  // Configuration records begin with their version, 1.
  return parameters.extradata_size < 4 || parameters.extradata[0] == 0;
}

}  // namespace

std::vector<std::span<const std::uint8_t>> unitsOf(std::span<const std::uint8_t> stream) {
  std::vector<std::span<const std::uint8_t>> units;
  std::size_t start = stream.size();
  const auto close = [&](std::size_t end) {
    // Zeros before a start code belong to nobody.
    while (end > start && stream[end - 1] == 0) --end;
    if (end > start) units.push_back(stream.subspan(start, end - start));
  };
  for (std::size_t i = 0; i + 2 < stream.size();) {
    const auto* found = static_cast<const std::uint8_t*>(std::memchr(stream.data() + i + 2, 1, stream.size() - i - 2));
    if (found == nullptr) break;
    const auto one = static_cast<std::size_t>(found - stream.data());
    if (stream[one - 1] == 0 && stream[one - 2] == 0) {
      close(one - 2);
      start = one + 1;
      i = one + 1;
    } else {
      i = one - 1;
    }
  }
  close(stream.size());
  return units;
}

std::unique_ptr<PacketCoding> PacketCoding::make(const AVStream& stream, const AVCodecParameters& parameters,
                                                 bool isPackedAvi, std::string* error) {
  const auto fail = [error](int status) {
    if (error != nullptr) *error = avErrorText(status);
    return nullptr;
  };
  std::unique_ptr<PacketCoding> coding(new PacketCoding());
  coding->parameters_.reset(avcodec_parameters_alloc());
  if (!coding->parameters_ || avcodec_parameters_copy(coding->parameters_.get(), &parameters) < 0) {
    return fail(AVERROR(ENOMEM));
  }
  if (beginsWithStartCode(parameters)) {
    if (parameters.codec_id == AV_CODEC_ID_H264) coding->units_ = Units::h264;
    if (parameters.codec_id == AV_CODEC_ID_HEVC) coding->units_ = Units::hevc;
  }
  const char* name = filterOf(parameters, isPackedAvi);
  if (name == nullptr) return coding;
  const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
  if (filter == nullptr) return fail(AVERROR_BSF_NOT_FOUND);
  AVBSFContext* context = nullptr;
  int status = av_bsf_alloc(filter, &context);
  if (status < 0) return fail(status);
  coding->filter_.reset(context);
  context->time_base_in = stream.time_base;
  status = avcodec_parameters_copy(context->par_in, &parameters);
  if (status >= 0) status = av_bsf_init(context);
  if (status < 0) return fail(status);
  return coding;
}

int PacketCoding::push(AVPacket* packet, const Take& take) {
  if (!filter_) {
    if (packet != nullptr && packet->size > 0) hand(*packet, take);
    return 0;
  }
  const AvPtr<AVPacket> filtered(av_packet_alloc());
  if (!filtered) return AVERROR(ENOMEM);
  if (packet != nullptr && packet->size == 0) return 0;
  int status = av_bsf_send_packet(filter_.get(), packet);
  while (status >= 0) {
    status = av_bsf_receive_packet(filter_.get(), filtered.get());
    if (status < 0) break;
    std::size_t size = 0;
    const std::uint8_t* extra = av_packet_get_side_data(filtered.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (extra != nullptr && parameters_->extradata_size == 0 && size > 0) {
      parameters_->extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
      if (parameters_->extradata == nullptr) return AVERROR(ENOMEM);
      std::memcpy(parameters_->extradata, extra, size);
      parameters_->extradata_size = static_cast<int>(size);
    }
    if (filtered->size > 0) hand(*filtered, take);
    av_packet_unref(filtered.get());
  }
  return status == AVERROR(EAGAIN) || status == AVERROR_EOF ? 0 : status;
}

/// Parameter sets that stand in the sample entry need not be in the samples too, and for 'hvc1' must not.
bool PacketCoding::isParameterSetOfEntry(std::span<const std::uint8_t> unit) const {
  if (units_ != Units::hevc || parameters_->extradata_size <= 0) return false;
  const int type = unit[0] >> 1 & 0x3f;
  if (type < 32 || type > 34) return false;
  const auto stored = unitsOf({parameters_->extradata, static_cast<std::size_t>(parameters_->extradata_size)});
  return std::ranges::any_of(stored,
                             [unit](std::span<const std::uint8_t> each) { return std::ranges::equal(each, unit); });
}

void PacketCoding::hand(const AVPacket& packet, const Take& take) {
  const std::span<const std::uint8_t> bytes(packet.data, static_cast<std::size_t>(packet.size));
  if (units_ == Units::none) return take(packet, bytes);
  buffer_.clear();
  for (const std::span<const std::uint8_t> unit : unitsOf(bytes)) {
    if (isParameterSetOfEntry(unit)) continue;
    for (int shift = 24; shift >= 0; shift -= 8) buffer_.push_back(static_cast<std::uint8_t>(unit.size() >> shift));
    buffer_.insert(buffer_.end(), unit.begin(), unit.end());
  }
  take(packet, buffer_);
}

}  // namespace vistrelle::platform
