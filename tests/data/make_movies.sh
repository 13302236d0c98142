#!/bin/sh
# make_movies.sh FOLDER: makes small movies with the distribution's ffmpeg, one for every way in which containers and
# codecs can make it hard to find the frame that is on screen at a time. Movies that exist already are kept.
set -u
folder=$1
mkdir -p "$folder" || exit 1
cd "$folder" || exit 1

# Every frame differs from every other: moving bars, a running clock and noise that never repeats.
source160='testsrc2=size=160x120:rate=25:duration=4,noise=alls=8:allf=t'

# make NAME ARGUMENTS...: writes beside, then puts in place, so that a broken run leaves no half movie.
make_movie() {
  name=$1
  shift
  [ -s "$name" ] && return 0
  if ffmpeg -nostdin -v error -y "$@" "making.$$.$name" </dev/null; then
    mv "making.$$.$name" "$name"
  else
    rm -f "making.$$.$name"
    echo "make_movies: $name could not be made" >&2
    failed=1
  fi
}
failed=0

lavfi() {  # lavfi NAME ARGUMENTS...: from the usual pictures
  name=$1
  shift
  make_movie "$name" -f lavfi -i "$source160" "$@"
}

x264='-c:v libx264 -preset veryfast -threads 1 -pix_fmt yuv420p -g 25 -bf 2'
x265='-c:v libx265 -preset ultrafast -pix_fmt yuv420p'
# shellcheck disable=SC2086  # the option lists are meant to be split
{
  lavfi h264_closed.mp4 $x264
  lavfi h264_open.mp4 $x264 -bf 3 -x264-params open-gop=1:scenecut=0
  lavfi h264_long_gop.mp4 -c:v libx264 -preset veryfast -threads 1 -pix_fmt yuv420p -g 250 -bf 3
  lavfi h264_intra_refresh.mp4 $x264 -bf 0 -x264-params intra-refresh=1:keyint=20
  lavfi h264_one_frame.mp4 $x264 -frames:v 1
  lavfi h264_interlaced.mp4 $x264 -flags +ildct+ilme -x264-params tff=1
  lavfi hevc_open.mp4 $x265 -x265-params open-gop=1:keyint=25:min-keyint=25:scenecut=0:bframes=3:log-level=error -tag:v hvc1
  lavfi hevc_closed.mkv $x265 -x265-params open-gop=0:keyint=25:bframes=3:log-level=error
  lavfi mpeg2.ts -c:v mpeg2video -g 15 -bf 2 -b:v 600k
  lavfi mpeg2_ps.vob -c:v mpeg2video -g 15 -bf 2 -b:v 600k -f vob
  lavfi h264.ts $x264 -x264-params open-gop=1
  lavfi hevc.ts $x265 -x265-params open-gop=1:keyint=25:min-keyint=25:scenecut=0:bframes=3:log-level=error
  lavfi h264.m2ts $x264 -f mpegts -mpegts_m2ts_mode 1
  lavfi mpeg4.avi -c:v mpeg4 -g 25 -bf 2 -b:v 500k
  lavfi h264.avi $x264
  lavfi mjpeg.avi -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  lavfi raw.h264 $x264
  lavfi raw_30.h264 $x264 -r 30
  lavfi raw.hevc $x265 -x265-params keyint=25:bframes=3:log-level=error
  lavfi raw.m2v -c:v mpeg2video -g 15 -bf 2 -b:v 600k
  lavfi late_start.mkv $x264 -output_ts_offset 8.333
  lavfi vp8.webm -c:v libvpx -deadline realtime -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 50 -b:v 300k
  lavfi vp9_altref.webm -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 50 -b:v 300k
  lavfi av1.mkv -c:v libaom-av1 -cpu-used 8 -usage realtime -g 50 -b:v 200k -frames:v 50
  lavfi prores.mov -c:v prores -profile:v 0 -frames:v 40
  lavfi dnxhr.mov -c:v dnxhd -profile:v dnxhr_lb -pix_fmt yuv422p -s 256x144 -frames:v 30
  lavfi mjpeg.mov -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  lavfi fragmented.mp4 $x264 -movflags +frag_keyframe+empty_moov+default_base_moof
  lavfi theora.ogv -c:v libtheora -g 16 -b:v 400k
  lavfi flash.flv -c:v flv -g 25 -b:v 500k
  lavfi h264.flv $x264
  lavfi wmv2.wmv -c:v wmv2 -g 25 -b:v 500k
  lavfi mpeg2.mxf -c:v mpeg2video -g 15 -bf 2 -b:v 600k
  make_movie vfr.mkv -f lavfi -i "$source160,select='not(mod(n,3))+not(mod(n,7))'" -vsync vfr $x264
  make_movie ntsc.mp4 -f lavfi -i "testsrc2=size=160x120:rate=30000/1001:duration=3,noise=alls=8:allf=t" $x264
  make_movie fps120.mp4 -f lavfi -i "testsrc2=size=160x120:rate=120:duration=1.5,noise=alls=8:allf=t" $x264
  make_movie cut.mp4 -ss 1.37 -i h264_closed.mp4 -c copy
  make_movie cut_open.mp4 -ss 1.37 -i h264_open.mp4 -c copy
  make_movie negative.mkv -ss 1.37 -i h264_open.mp4 -c copy -avoid_negative_ts disabled
  make_movie field_pairs.ts -f lavfi -i "$source160" -c:v mpeg2video -flags +ildct+ilme -g 15 -bf 2 -b:v 900k
}
if [ ! -s joined.ts ] && [ -s h264.ts ]; then
  cat h264.ts h264.ts >"making.$$.joined" && mv "making.$$.joined" joined.ts
fi
if [ ! -s damaged.mp4 ] && [ -s h264_closed.mp4 ]; then
  # A stretch of the second half of the media data is overwritten.
  size=$(wc -c <h264_closed.mp4)
  cp h264_closed.mp4 "making.$$.damaged"
  dd if=/dev/zero of="making.$$.damaged" bs=1 seek=$((size / 2)) count=3000 conv=notrunc 2>/dev/null
  mv "making.$$.damaged" damaged.mp4
fi
exit "$failed"
