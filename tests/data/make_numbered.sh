#!/bin/sh
# make_numbered.sh FOLDER [NAME...]: makes movies whose frames carry their own number, one for every way in which
# containers and codecs can make it hard to find the frame that is on screen; only the named ones when names are given.
# Beside each movie stands NAME.truth: lines of "seconds number", the time from which a number is on screen. The truth
# comes from the arguments below, not from the movie. Movies that exist already are kept. `list` in place of a folder
# prints the names.
#
# A frame shows ten bits, lowest at the left: a cell of one tenth of the width and one third of the height each, white
# for 1; beneath them the same bits inverted; in the last third moving waves, so that encoders have something to predict.
set -u
script=$(realpath "$0")
folder=$1
shift
wanted=" $* "
failed=0
if [ "$folder" = list ]; then
  listing=1
else
  listing=0
  mkdir -p "$folder" || exit 1
  cd "$folder" || exit 1
fi

numbers=making.numbers.yuv
make_numbers() {
  [ -s "$numbers" ] && return 0
  waves="128+60*sin((X+3*N)/9)+30*sin((Y*5+N*N)/7)"
  bits="40+175*mod(floor(N/pow(2,floor(X/16)))+floor(Y/32),2)"
  ffmpeg -nostdin -v error -y -f lavfi -i "color=gray:size=160x96:rate=25,format=yuv420p,geq=lum='if(lt(Y,64),$bits,$waves)':cb='128+40*sin((X+N)/11)':cr='128+40*cos((Y-N)/5)'" \
    -frames:v 200 -f rawvideo "making.$$.yuv" && mv "making.$$.yuv" "$numbers"
}

is_wanted() {  # is_wanted NAME: it is to be made and is not there yet
  if [ "$listing" = 1 ]; then
    echo "$1"
    return 1
  fi
  case "$wanted" in
  "  ") ;;
  *" $1 "*) ;;
  *) return 1 ;;
  esac
  [ ! -s "$1.truth" ] || [ ! -s "$1" ]
}

# truth NUMERATOR DENOMINATOR COUNT [FIRST [START]]: COUNT frames at a constant rate, from number FIRST at START seconds.
truth() {
  awk -v n="$1" -v d="$2" -v count="$3" -v first="${4:-0}" -v start="${5:-0}" \
    'BEGIN { for (i = 0; i < count; ++i) printf "%.6f %d\n", start + i * d / n, first + i }'
}

put() {  # put NAME STATUS: into place with its truth (standard input), or a word of complaint
  if [ "$2" = 0 ] && [ -s "making.$$.$1" ]; then
    cat >"$1.truth"
    mv "making.$$.$1" "$1"
  else
    rm -f "making.$$.$1"
    echo "make_numbered: $1 could not be made" >&2
    failed=1
  fi
}

quiet() { ffmpeg -nostdin -v error -y "$@" </dev/null; }

# numbered NAME NUMERATOR/DENOMINATOR COUNT ARGUMENTS...: the first COUNT numbers at that rate
numbered() {
  name=$1
  rate=$2
  count=$3
  shift 3
  is_wanted "$name" || return 0
  make_numbers
  quiet -f rawvideo -pix_fmt yuv420p -s 160x96 -r "$rate" -i "$numbers" -frames:v "$count" "$@" "making.$$.$name"
  status=$?
  truth "${rate%/*}" "${rate#*/}" "$count" | put "$name" $status
}

# shifted NAME START ARGUMENTS...: the same, on screen from START seconds
shifted() {
  name=$1
  start=$2
  shift 2
  is_wanted "$name" || return 0
  usual "$name" "$@"
  [ ! -s "$name" ] || truth 25 1 100 0 "$start" >"$name.truth"
}

usual() {  # usual NAME ARGUMENTS...: 100 frames, 25 a second
  name=$1
  shift
  numbered "$name" 25/1 100 "$@"
}

xvid() {
  awk 'BEGIN { for (i = 0; i < 97; ++i) printf "%.6f %d\n", (i + (i > 0) + (i > 2)) / 25, i; printf "3.96 98\n" }'
}

needs() {  # needs NAME: another numbered movie that this one is made from
  if [ ! -s "$1" ]; then "$script" . "$1" || failed=1; fi
}

x264='-c:v libx264 -preset veryfast -threads 1 -pix_fmt yuv420p -g 25 -bf 2'
x265='-c:v libx265 -preset ultrafast -pix_fmt yuv420p'
quietly='log-level=error'
open265="open-gop=1:keyint=25:min-keyint=25:scenecut=0:bframes=3:$quietly"
mpeg2='-c:v mpeg2video -g 15 -bf 2 -b:v 900k'
nearest='-sws_flags neighbor'
# shellcheck disable=SC2086  # the option lists are meant to be split
{
  # ---- H.264 and HEVC: kinds of groups and keys --------------------------------------------------------------------
  usual h264_closed.mp4 $x264
  usual h264_open.mp4 $x264 -bf 3 -x264-params open-gop=1:scenecut=0
  usual h264_pyramid.mp4 $x264 -bf 7 -x264-params b-pyramid=normal:b-adapt=0:ref=4:scenecut=0
  usual h264_pyramid_open.mkv $x264 -bf 5 -x264-params b-pyramid=normal:b-adapt=0:ref=4:open-gop=1:scenecut=0
  usual h264_long_gop.mp4 $x264 -g 250 -bf 3
  usual h264_no_b.mp4 $x264 -bf 0
  usual h264_baseline.mp4 $x264 -bf 0 -profile:v baseline
  usual h264_intra_only.mov $x264 -g 1 -bf 0
  usual h264_mbaff.mp4 $x264 -flags +ildct+ilme -x264-params tff=1
  usual h264_mbaff_open.ts $x264 -flags +ildct+ilme -x264-params bff=1:open-gop=1
  usual h264_intra_refresh.mp4 $x264 -bf 0 -x264-params intra-refresh=1:keyint=20
  usual h264_recovery_points.ts $x264 -bf 2 -x264-params open-gop=1:keyint=12:scenecut=0
  usual h264_intra_refresh.ts $x264 -bf 0 -x264-params intra-refresh=1:keyint=20
  usual h264_lossless.mkv -c:v libx264 -qp 0 -preset ultrafast
  usual h264_10bit.mp4 $x264 -pix_fmt yuv420p10le
  usual h264_422.mov $x264 -pix_fmt yuv422p
  usual h264_weighted.mp4 $x264 -x264-params weightb=1:weightp=2:b-adapt=2
  usual h264_slices.mp4 $x264 -x264-params slices=4
  usual h264_avi.avi $x264
  usual h264_avi_no_b.avi $x264 -bf 0
  usual h264_avi_pyramid.avi $x264 -bf 5 -x264-params b-pyramid=normal:b-adapt=0
  usual h264.flv $x264
  usual h264.ts $x264 -x264-params open-gop=1
  usual padded.ts $x264 -muxrate 3M
  usual h264.m2ts $x264 -f mpegts -mpegts_m2ts_mode 1
  usual h264.mxf $x264
  usual h264.3gp $x264 -bf 0
  shifted h264.f4v 0.08 $x264 -f f4v
  usual raw.h264 $x264
  usual raw_open.h264 $x264 -bf 3 -x264-params open-gop=1
  usual hevc_closed.mp4 $x265 -x265-params "open-gop=0:keyint=25:bframes=3:$quietly" -tag:v hvc1
  usual hevc_open.mp4 $x265 -x265-params "$open265" -tag:v hvc1
  usual hevc_closed.mkv $x265 -x265-params "open-gop=0:keyint=25:bframes=3:$quietly"
  usual hevc_open.mkv $x265 -x265-params "$open265"
  usual hevc_pyramid.mp4 $x265 -x265-params "b-pyramid=1:bframes=4:b-adapt=0:rc-lookahead=20:keyint=25:$quietly"
  usual hevc_intra_refresh.mp4 $x265 -x265-params "intra-refresh=1:keyint=20:bframes=0:$quietly"
  usual hevc_no_b.mov $x265 -x265-params "bframes=0:keyint=25:$quietly"
  usual hevc_10bit.mp4 $x265 -pix_fmt yuv420p10le -x265-params "$open265"
  usual hevc.ts $x265 -x265-params "$open265"
  usual hevc_closed.ts $x265 -x265-params "open-gop=0:keyint=25:bframes=3:$quietly"
  usual raw.hevc $x265 -x265-params "keyint=25:bframes=3:$quietly"

  # ---- MPEG-1, MPEG-2, MPEG-4 and their kin ------------------------------------------------------------------------
  usual mpeg1.dat -c:v mpeg1video -g 15 -bf 2 -b:v 900k -f vcd -s 352x288 $nearest
  usual mpeg1.ts -c:v mpeg1video -g 15 -bf 2 -b:v 900k
  usual mpeg2.ts $mpeg2
  usual mpeg2_fields.ts $mpeg2 -flags +ildct+ilme -alternate_scan 1
  usual mpeg2_intra.ts -c:v mpeg2video -g 1 -b:v 2M
  usual mpeg2_program.vob $mpeg2 -f vob
  usual mpeg2_program.dat $mpeg2 -f svcd
  usual mpeg2_dvd.bin $mpeg2 -f dvd
  usual mpeg2.mkv $mpeg2
  usual mpeg2.mov $mpeg2
  usual mpeg2.mxf $mpeg2
  usual raw.m2v $mpeg2
  usual mpeg4.mp4 -c:v mpeg4 -g 25 -bf 2 -b:v 700k
  usual mpeg4.avi -c:v mpeg4 -g 25 -bf 2 -b:v 700k
  usual mpeg4_no_b.avi -c:v mpeg4 -g 25 -bf 0 -b:v 700k
  if is_wanted mpeg4_xvid.avi; then
    usual mpeg4_xvid.avi -c:v libxvid -g 25 -bf 2 -b:v 700k
    # Packed B-frames: the encoder leaves the second and the fifth chunk empty, and the former frame stays.
    xvid >mpeg4_xvid.avi.truth
  fi
  usual mpeg4.mkv -c:v mpeg4 -g 25 -bf 2 -b:v 700k
  usual mpeg4.ts -c:v mpeg4 -g 25 -bf 2 -b:v 700k
  usual mpeg4.3gp -c:v mpeg4 -g 25 -b:v 700k
  usual raw.m4v -c:v mpeg4 -g 25 -bf 2 -b:v 700k
  usual msmpeg4v2.avi -c:v msmpeg4v2 -g 25 -b:v 700k
  usual msmpeg4v3.avi -c:v msmpeg4 -g 25 -b:v 700k
  usual wmv1.wmv -c:v wmv1 -g 25 -b:v 700k
  usual wmv2.wmv -c:v wmv2 -g 25 -b:v 700k
  usual wmv2.avi -c:v wmv2 -g 25 -b:v 700k
  usual h263.3gp -c:v h263 -s 176x144 $nearest -g 25 -b:v 700k
  usual h263plus.mov -c:v h263p -g 25 -b:v 700k
  usual h261.mkv -c:v h261 -s 176x144 $nearest -b:v 700k
  usual sorenson.flv -c:v flv -g 25 -b:v 700k
  usual screen.flv -c:v flashsv -pix_fmt bgr24 -g 25

  # ---- VP8, VP9, AV1, Theora ---------------------------------------------------------------------------------------
  usual vp8.webm -c:v libvpx -deadline realtime -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16 -g 50 -b:v 500k
  usual vp8_good.webm -c:v libvpx -deadline good -cpu-used 5 -auto-alt-ref 1 -lag-in-frames 16 -g 40 -b:v 500k
  usual vp9.webm -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 50 -b:v 500k
  usual vp9_hidden.webm -c:v libvpx-vp9 -deadline good -cpu-used 5 -auto-alt-ref 6 -lag-in-frames 25 -g 50 -b:v 500k
  usual vp9_hidden.mp4 -c:v libvpx-vp9 -deadline good -cpu-used 5 -auto-alt-ref 1 -lag-in-frames 16 -g 50 -b:v 500k
  usual vp9_odd.webm -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 50 -b:v 500k -s 163x101 $nearest
  usual vp9.ivf -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 50 -b:v 500k
  numbered av1.mkv 25/1 60 -c:v libaom-av1 -cpu-used 8 -g 25 -b:v 300k
  numbered av1.mp4 25/1 60 -c:v libaom-av1 -cpu-used 8 -g 25 -b:v 300k
  numbered av1.webm 25/1 60 -c:v libaom-av1 -cpu-used 8 -usage realtime -g 25 -b:v 300k
  numbered av1_fragmented.mp4 25/1 60 -c:v libaom-av1 -cpu-used 8 -g 25 -b:v 300k -movflags +frag_keyframe+empty_moov
  numbered av1.obu 25/1 60 -c:v libaom-av1 -cpu-used 8 -usage realtime -g 25 -b:v 300k
  usual theora.ogv -c:v libtheora -g 16 -b:v 600k

  # ---- every frame a key ---------------------------------------------------------------------------------------------
  numbered prores_proxy.mov 25/1 75 -c:v prores -profile:v 0
  numbered prores_4444.mov 25/1 75 -c:v prores_ks -profile:v 4444 -pix_fmt yuva444p10le
  numbered prores.mkv 25/1 75 -c:v prores -profile:v 2
  numbered dnxhr.mov 25/1 75 -c:v dnxhd -profile:v dnxhr_lb -pix_fmt yuv422p -s 256x144 $nearest
  numbered dnxhr.mxf 25/1 75 -c:v dnxhd -profile:v dnxhr_lb -pix_fmt yuv422p -s 256x144 $nearest
  numbered dnxhd.mov 25/1 30 -c:v dnxhd -b:v 36M -pix_fmt yuv422p -s 1920x1080 $nearest
  usual mjpeg.mov -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  usual mjpeg.avi -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  usual mjpeg.mkv -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  usual raw.mjpeg -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  numbered dv.mov 25/1 50 -c:v dvvideo -s 720x576 -pix_fmt yuv420p $nearest
  numbered dv.avi 25/1 50 -c:v dvvideo -s 720x576 -pix_fmt yuv420p $nearest
  numbered raw.dv 25/1 50 -c:v dvvideo -s 720x576 -pix_fmt yuv420p $nearest
  numbered dv_ntsc.mov 30000/1001 60 -c:v dvvideo -s 720x480 -pix_fmt yuv411p $nearest
  usual png.mov -c:v png -pix_fmt rgb24
  usual animation.mov -c:v qtrle -pix_fmt rgb24 -g 25
  usual ffv1.mkv -c:v ffv1 -g 1
  usual ffv1_odd.mkv -c:v ffv1 -g 1 -s 161x97 $nearest
  usual huffyuv.avi -c:v huffyuv -pix_fmt yuv422p
  usual utvideo.avi -c:v utvideo
  usual uncompressed.avi -c:v rawvideo
  usual uncompressed.mov -c:v rawvideo -pix_fmt uyvy422
  usual v210.mov -c:v v210
  usual jpeg2000.mxf -c:v jpeg2000 -pix_fmt yuv420p
  usual svq1.mov -c:v svq1 -g 25
  usual cinepak.avi -c:v cinepak -g 25 -pix_fmt rgb24

  # ---- containers -----------------------------------------------------------------------------------------------------
  # Written without an edit list: the delay of the B-frames stays.
  shifted fragmented.mp4 0.08 $x264 -movflags +frag_keyframe+empty_moov+default_base_moof
  shifted fragmented_every_frame.mp4 0.08 $x264 -movflags +frag_every_frame+empty_moov
  shifted fragmented_moov.mp4 0.08 $x264 -movflags +frag_keyframe
  shifted fragmented_sidx.mp4 0.08 $x264 -movflags +dash+frag_keyframe
  usual front_index.mp4 $x264 -movflags +faststart
  usual negative_offsets.mp4 $x264 -movflags +negative_cts_offsets
  usual no_edit_list.mov $x264 -bf 0 -use_editlist 0
  usual millisecond_ticks.mp4 $x264 -video_track_timescale 1000
  usual nut.nut $x264
  usual asf_h264.asf $x264 -bf 0

  # ---- rates ----------------------------------------------------------------------------------------------------------
  numbered rate_23.976.mp4 24000/1001 96 $x264
  numbered rate_24.mov 24/1 96 $x264
  numbered rate_29.97.mp4 30000/1001 120 $x264
  numbered rate_29.97.ts 30000/1001 120 $x264
  numbered rate_29.97.avi 30000/1001 120 -c:v mpeg4 -bf 2 -g 25 -b:v 700k
  numbered rate_29.97.vob 30000/1001 120 $mpeg2 -f vob
  numbered rate_50.ts 50/1 150 $x264
  numbered rate_59.94.mp4 60000/1001 180 $x264
  numbered rate_60.mkv 60/1 180 $x264
  numbered rate_120.mp4 120/1 180 $x264
  numbered rate_120.mkv 120/1 180 $x264
  numbered rate_12.5.avi 25/2 50 -c:v mjpeg -pix_fmt yuvj420p
  numbered rate_1.mp4 1/1 6 $x264
  numbered rate_30.h264 30/1 120 $x264
  numbered one_frame.mp4 25/1 1 $x264
  numbered one_frame.mkv 25/1 1 $x264
  numbered one_frame.avi 25/1 1 -c:v mpeg4 -b:v 700k
  numbered one_frame.ts 25/1 1 $mpeg2
  numbered subsecond.mp4 25/1 18 $x264
  numbered subsecond.ts 25/1 18 $x264
  numbered subsecond.webm 25/1 18 -c:v libvpx -b:v 500k

  # ---- where a movie starts -------------------------------------------------------------------------------------------
  usual late_start.mkv $x264 -output_ts_offset 8.333
  usual late_start.ts $x264 -output_ts_offset 3600
  usual very_late_start.mkv $x264 -output_ts_offset 360000
  usual clock_wraps.ts $x264 -output_ts_offset 95441
  usual clock_wraps_mpeg2.ts $mpeg2 -output_ts_offset 95440.5
}

# ---- copies with other times ---------------------------------------------------------------------------------------------

# changed NAME SOURCE ARGUMENTS... (truth on standard input): the source's packets, rewrapped
changed() {
  name=$1
  source=$2
  shift 2
  is_wanted "$name" || return 0
  needs "$source"
  quiet "$@" "making.$$.$name"
  put "$name" $?
}
# late NAME START: a truth whose first number is on screen until START + one frame, as before the first frame
truth 25 1 66 34 -0.01 | changed edit_offset.mp4 h264_closed.mp4 -ss 1.37 -i h264_closed.mp4 -c copy
truth 25 1 66 34 -0.01 | changed edit_offset_open.mp4 h264_open.mp4 -ss 1.37 -i h264_open.mp4 -c copy
truth 25 1 66 34 -0.01 | changed edit_offset.mov h264_pyramid.mp4 -ss 1.37 -i h264_pyramid.mp4 -c copy
truth 25 1 66 34 -0.01 | changed edit_offset_hevc.mp4 hevc_open.mp4 -ss 1.37 -i hevc_open.mp4 -c copy -tag:v hvc1
truth 25 1 100 0 0.72 | changed edit_empty.mp4 h264_closed.mp4 -itsoffset 0.72 -i h264_closed.mp4 -c copy
truth 25 1 100 0 0.72 | changed edit_empty.mov mpeg4.mp4 -itsoffset 0.72 -i mpeg4.mp4 -c copy
truth 25 1 100 0 0.08 | changed edit_kept_fragmented.mp4 h264_closed.mp4 -i h264_closed.mp4 -c copy -movflags +frag_keyframe
# Missing times: 7 frames left out of every 10; the last one before the gap stays on screen.
gaps() { awk 'BEGIN { for (i = 0; i < 100; ++i) if (i % 10 < 3) printf "%.6f %d\n", i / 25, i }'; }
for name in gaps.mp4 gaps.mkv gaps.ts gaps.flv gaps.mov; do
  if is_wanted $name; then
    make_numbers
    # shellcheck disable=SC2086
    quiet -f rawvideo -pix_fmt yuv420p -s 160x96 -r 25 -i "$numbers" -frames:v 30 \
      -vf "trim=end_frame=100,select=lt(mod(n\\,10)\\,3)" -fps_mode passthrough -enc_time_base 1/25 $x264 "making.$$.$name"
    status=$?
    gaps | put $name $status
  fi
done
vary() { awk 'BEGIN { for (i = 0; i < 100; ++i) if (i % 3 == 0 || i % 7 == 0) printf "%.6f %d\n", i / 25, i }'; }
for name in vary.mp4 vary.mkv vary.ts vary.webm; do
  if is_wanted $name; then
    make_numbers
    codec=$x264
    [ $name = vary.webm ] && codec='-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 500k -g 20'
    # shellcheck disable=SC2086
    quiet -f rawvideo -pix_fmt yuv420p -s 160x96 -r 25 -i "$numbers" \
      -vf "trim=end_frame=100,select=not(mod(n\\,3))+not(mod(n\\,7))" -fps_mode passthrough -enc_time_base 1/25 $codec \
      "making.$$.$name"
    status=$?
    vary | put $name $status
  fi
done
# Of two frames with one time the second is the last whose time is not later.
pairs() { awk 'BEGIN { for (i = 0; i < 100; ++i) printf "%.6f %d\n", int(i / 2) * 0.08, i }'; }
pairs | changed doubled_times.mkv h264_no_b.mp4 -i h264_no_b.mp4 -c copy -bsf:v "setts=ts=floor(N/2)*80"
# Matroska cannot say times before zero: without times the frames are counted, from the first that is there.
truth 25 1 75 25 | changed negative_start.mkv h264_open.mp4 -ss 1.37 -i h264_open.mp4 -c copy \
  -avoid_negative_ts disabled
xvid | changed packed_b.avi mpeg4_xvid.avi -i mpeg4_xvid.avi -c copy
truth 25 1 100 | changed rewrapped.ts h264_closed.mp4 -i h264_closed.mp4 -c copy
truth 25 1 100 | changed rewrapped.mkv h264.ts -i h264.ts -c copy

# ---- bytes changed --------------------------------------------------------------------------------------------------------

# Streams joined end to end, so that the clock starts again: the times run on.
joined() {  # joined NAME FIRST SECOND
  is_wanted "$1" || return 0
  needs "$2"
  needs "$3"
  cat "$2" "$3" >"making.$$.$1"
  { truth 25 1 100; truth 25 1 100 0 4; } | put "$1" $?
}
joined joined.ts h264.ts h264.ts
joined joined_mpeg2.ts mpeg2.ts mpeg2.ts
joined joined_hevc.ts hevc_closed.ts hevc_closed.ts
joined joined.vob mpeg2_program.vob mpeg2_program.vob
# The second clock is an hour behind, which could be taken for one that has gone through its end.
joined joined_behind.ts late_start.ts h264.ts
# Larger than what is read of a movie to know its end.
joined joined_large.ts padded.ts padded.ts
# The part between is another one.
if is_wanted joined_three.ts; then
  needs h264.ts
  needs late_start.ts
  needs gaps.ts
  cat late_start.ts gaps.ts h264.ts >making.$$.joined_three.ts
  { truth 25 1 100; gaps | awk '{ print $1 + 4, $2 }'; truth 25 1 100 0 7.72; } | put joined_three.ts $?
fi

# The size changes in mid-stream: the second half is twice as large.
second_half() {
  is_wanted "$1" || return 0
  needs "$2"
  make_numbers
  # shellcheck disable=SC2086
  quiet -f rawvideo -pix_fmt yuv420p -s 160x96 -r 25 -i "$numbers" -frames:v 100 -s 320x192 $nearest $3 \
    -output_ts_offset "$4" "making.$$.half.ts" && cat "$2" "making.$$.half.ts" >"making.$$.$1"
  status=$?
  rm -f "making.$$.half.ts"
  { truth 25 1 100; truth 25 1 100 0 4; } | put "$1" $status
}
second_half resized.ts h264.ts "$x264" 4
# These times overlap by the one or two frames that are reordered; the following ones run on.
second_half resized_mpeg2.ts mpeg2.ts "$mpeg2" 4
second_half resized_times.ts h264.ts "$x264" 4.08
second_half resized_mpeg2_times.ts mpeg2.ts "$mpeg2" 4.04
second_half resized_hevc.ts hevc_closed.ts "$x265 -x265-params open-gop=0:keyint=25:bframes=3:$quietly" 4.08
second_half resized_hevc_open.ts hevc.ts "$x265 -x265-params $open265" 4.08
second_half resized_mpeg4.ts mpeg4.ts "-c:v mpeg4 -g 25 -bf 2 -b:v 700k" 4.04
for name in resized_hevc.mp4 resized_hevc.mkv; do
  { truth 25 1 100; truth 25 1 100 0 4; } | changed $name resized_hevc.ts -i resized_hevc.ts -c copy
done
for name in resized_open.mp4 resized_open.mkv; do
  { truth 25 1 100; truth 25 1 100 0 4; } | changed $name resized_times.ts -i resized_times.ts -c copy
done
# Only the shape of the pixels changes.
second_half aspect_mpeg2.ts mpeg2.ts "$mpeg2 -s 160x96 -aspect 16:9" 4.04

# resized NAME ARGUMENTS...: two halves of 50 frames each, 160 x 96 and 320 x 192, joined packet by packet
resized() {
  name=$1
  shift
  is_wanted "$name" || return 0
  make_numbers
  for width in 160 320; do
    quiet -f rawvideo -pix_fmt yuv420p -s 160x96 -r 25 -i "$numbers" -frames:v 50 -s ${width}x$((width * 3 / 5)) $nearest \
      "$@" -f matroska "making.$$.$width.mkv"
    echo "file making.$$.$width.mkv"
  done >"making.$$.list"
  quiet -f concat -i "making.$$.list" -c copy "making.$$.$name"
  status=$?
  rm -f "making.$$.list" "making.$$.160.mkv" "making.$$.320.mkv"
  { truth 25 1 50; truth 25 1 50 0 2; } | put "$name" $status
}
# shellcheck disable=SC2086
{
  resized resized.mp4 $x264 -bf 0
  resized resized.mkv $x264 -bf 0
  resized resized_vp8.webm -c:v libvpx -deadline realtime -cpu-used 8 -g 20 -b:v 500k
  resized resized_vp9.webm -c:v libvpx-vp9 -deadline good -cpu-used 5 -auto-alt-ref 1 -lag-in-frames 16 -g 20 -b:v 500k
  resized resized_vp9.mp4 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 20 -b:v 500k
  resized resized_av1.mkv -c:v libaom-av1 -cpu-used 8 -usage realtime -g 20 -b:v 300k
  resized resized_mjpeg.mkv -c:v mjpeg -q:v 8 -pix_fmt yuvj420p
  resized resized_png.mkv -c:v png -pix_fmt rgb24
}

# cut_off NAME SOURCE FRAMES: the first 60 % of the bytes, which hold at least FRAMES frames
cut_off() {
  is_wanted "$1" || return 0
  needs "$2"
  size=$(wc -c <"$2")
  head -c $((size * 6 / 10)) "$2" >"making.$$.$1"
  truth 25 1 "$3" 0 "${4:-0}" | put "$1" $?
}
cut_off truncated.mp4 front_index.mp4 50
cut_off truncated.mkv h264_pyramid_open.mkv 50
cut_off truncated.ts h264.ts 50
cut_off truncated.avi mpeg4.avi 50
cut_off truncated.flv h264.flv 50
cut_off truncated.webm vp8.webm 50
cut_off truncated.ogv theora.ogv 50
cut_off truncated.h264 raw.h264 50
cut_off truncated_fragmented.mp4 fragmented.mp4 50 0.08
cut_off truncated.vob mpeg2_program.vob 50
cut_off truncated.wmv wmv2.wmv 50

# replaced NAME SOURCE CHUNK BYTES [NUMBER]: a chunk of an AVI file, counted from 0, begins with these bytes (printf) and
# is filled with zeros; its number (that of the chunk) is never shown, the former one stays on screen.
replaced() {
  is_wanted "$1" || return 0
  needs "$2"
  cp "$2" "making.$$.$1"
  # The first "00dc" stands in the index of indexes. The length of the chunk and its content come behind.
  at=$(grep -obUa 00dc "$2" | cut -d: -f1 | sed -n "$(($3 + 2))p")
  size=$(od -An -tu4 -j $((at + 4)) -N 4 "$2" | tr -d ' ')
  { printf "$4"; head -c "$size" /dev/zero; } | head -c "$size" |
    dd of="making.$$.$1" bs=1 seek=$((at + 8)) conv=notrunc 2>/dev/null
  { truth 25 1 100 | grep -v " ${5:-$3}\$"; } | put "$1" $?
}
# The frame before a key: "not coded", at 24 of 25 in its second; a header of user data alone; garbage; no slice.
replaced not_coded.avi mpeg4_no_b.avi 49 '\000\000\001\266\134\117'
replaced headers_only.avi mpeg4_no_b.avi 49 '\000\000\001\262user'
replaced garbage_chunk.avi mpeg4_no_b.avi 49 'this is no frame of a movie'
replaced headers_only_b.avi mpeg4.avi 47 '\000\000\001\262user' 46
replaced no_slice.avi h264_avi_no_b.avi 49 '\000\000\000\001\011\360'
replaced garbage_wmv2.avi wmv2.avi 49 '\377\377\377\377\377\377'

# damaged NAME SOURCE: 400 bytes in the middle overwritten; frames there may show anything, if the log says so
damaged() {
  is_wanted "$1" || return 0
  needs "$2"
  size=$(wc -c <"$2")
  cp "$2" "making.$$.$1"
  yes 'not a movie' | head -c 400 | dd of="making.$$.$1" bs=1 seek=$((size / 2)) conv=notrunc 2>/dev/null
  truth 25 1 100 | put "$1" $?
}
damaged damaged.mp4 front_index.mp4
damaged damaged.mkv h264_pyramid_open.mkv
damaged damaged.ts h264.ts
damaged damaged.avi mpeg4.avi
damaged damaged.vob mpeg2_program.vob
damaged damaged_hevc.mp4 hevc_open.mp4
damaged damaged_mjpeg.mov mjpeg.mov

exit "$failed"
