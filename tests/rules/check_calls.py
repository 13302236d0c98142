#!/usr/bin/env python3
"""Where FFmpeg may be called from. Usage: check_calls.py FOLDER (the folder that holds cli/, text/, platform/ ...).

1. Movies are opened, and decoders chosen, in one place each, which has all the locks; nothing opens by a name.
2. The result of a call that can fail in the middle of a movie is looked at.
Prints each breach as file:line: reason; exit status 1 when there is one.
"""
import pathlib
import re
import sys

MEDIA = "platform/media/"
PLACES = {
    "avformat_open_input": [MEDIA + "ffmpeg/demuxer.cpp"],
    "avformat_alloc_context": [MEDIA + "ffmpeg/demuxer.cpp"],
    "avformat_find_stream_info": [MEDIA + "ffmpeg/demuxer.cpp"],
    "avio_alloc_context": [MEDIA + "ffmpeg/file_io.cpp", MEDIA + "export/muxer.cpp"],
    "avcodec_find_decoder": [MEDIA + "ffmpeg/decoders.cpp"],
    "avcodec_find_decoder_by_name": [MEDIA + "ffmpeg/decoders.cpp"],
    "av_max_alloc": [MEDIA + "ffmpeg/demuxer.cpp"],
    "avio_open": [], "avio_open2": [], "avio_find_protocol_name": [], "avformat_network_init": [],
    "avdevice_register_all": [],
    "av_find_input_format": [MEDIA + "ffmpeg/demuxer.cpp"], "av_probe_input_buffer2": [MEDIA + "ffmpeg/demuxer.cpp"],
}
LOOKED_AT = ("avcodec_send_packet", "avcodec_receive_frame", "avcodec_send_frame", "avcodec_receive_packet",
             "av_bsf_send_packet", "av_bsf_receive_packet", "av_read_frame", "av_interleaved_write_frame",
             "av_write_frame", "av_write_trailer", "avformat_write_header", "avcodec_open2", "swr_convert", "swr_init",
             "sws_scale", "sws_scale_frame", "av_frame_get_buffer", "av_frame_ref", "av_frame_copy",
             "av_frame_copy_props", "av_frame_apply_cropping", "av_frame_make_writable", "av_packet_ref",
             "av_new_packet", "av_grow_packet", "av_channel_layout_copy", "avcodec_parameters_copy",
             "avcodec_parameters_to_context", "avcodec_parameters_from_context", "av_dict_set", "av_dict_set_int")
CALL = re.compile(r"\b(\w+)\s*\(")
STATEMENT = re.compile(r"(?:^|[;{}]|\)|\belse)\s*(?:\(void\)\s*)?!?(" + "|".join(LOOKED_AT) + r")\s*\(")
COMMENT = re.compile(r"//.*")


def breaches(root):
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        place = path.relative_to(root).as_posix()
        former = ";"
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            code = COMMENT.sub("", line).strip()
            for name in CALL.findall(code):
                if place not in PLACES.get(name, [place]):
                    yield f"{path}:{number}: {name} is called outside {' and '.join(PLACES[name]) or 'nowhere'}"
            # What continues a line before is no statement of its own.
            begins = former.endswith((";", "{", "}", ":")) or re.search(r"^(if|for|while)\b.*\)$|\belse$", former)
            ignored = STATEMENT.search(code if begins else "x " + code)
            if ignored and not re.search(r"\b(if|while|for|return|switch)\s*\($", code[:ignored.start(1)].rstrip()):
                yield f"{path}:{number}: the result of {ignored[1]} is not looked at"
            former = code or former


def main():
    found = list(breaches(pathlib.Path(sys.argv[1])))
    print("\n".join(found) if found else "calls of FFmpeg: no breach")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
