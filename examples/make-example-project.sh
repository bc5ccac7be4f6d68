#!/bin/sh
# Builds a small, finished Velum project folder from nothing:
#
#   OUT/media/A001.mp4, A002.mp4, A003.mov   three A-roll clips (H.264 + AAC)
#   OUT/media/external_mic.wav               the external microphone, 48 kHz
#   OUT/c0_probe.json ... c4_suggestions.json the stage documents of a job
#   OUT/artifacts_job.json                   the stamp of that job
#
# The speech of every clip is put together word by word from synthesised
# words and silences of chosen lengths, so each word's true start and end are
# known to the sample, and the documents use exactly those times.
#
# Usage: make-example-project.sh [--force] OUT_DIR
#
# Every sox call runs with -R (repeatable), and the encoders are asked for
# bit-exact output, so two runs give the same media and the same clip ids.
#
# When VELUM_CLI names a velum-cli program, the folder is also opened with
# "velum-cli review" as a check.

set -eu
set -f # words such as "bad?" must never be taken as file patterns

PROG=${0##*/}

die() {
    printf '%s: %s\n' "$PROG" "$*" >&2
    exit 1
}

say() {
    printf '%s: %s\n' "$PROG" "$*"
}

usage() {
    cat <<EOF
Usage: $PROG [--force] OUT_DIR

Makes OUT_DIR and builds in it a small, finished example project: three
A-roll clips and an external microphone track in OUT_DIR/media, and the
stage documents of a finished job beside them.

  --force   build even when OUT_DIR is not empty; the files of an earlier
            example are replaced, anything else in the folder is left alone
  -h        show this text

Environment: VELUM_CLI, a velum-cli program to check the result with.
EOF
}

# ---------------------------------------------------------------- arguments

FORCE=0
OUT=
while [ $# -gt 0 ]; do
    case $1 in
    --force) FORCE=1 ;;
    -h | --help)
        usage
        exit 0
        ;;
    --)
        shift
        break
        ;;
    -*) die "unknown option \"$1\" (try -h)" ;;
    *)
        [ -z "$OUT" ] || die "give one output folder only (try -h)"
        OUT=$1
        ;;
    esac
    shift
done
if [ $# -gt 0 ]; then
    [ -z "$OUT" ] || die "give one output folder only (try -h)"
    OUT=$1
    shift
fi
[ $# -eq 0 ] || die "give one output folder only (try -h)"
[ -n "$OUT" ] || {
    usage >&2
    exit 2
}

# ---------------------------------------------------------------- tools

missing=
for tool in ffmpeg ffprobe espeak-ng sox soxi sha256sum awk; do
    command -v "$tool" >/dev/null 2>&1 || missing="$missing $tool"
done
if [ -n "$missing" ]; then
    die "missing tool(s):$missing. On Debian: apt-get install ffmpeg espeak-ng sox coreutils mawk"
fi
encoders=$(ffmpeg -hide_banner -encoders 2>/dev/null) || die "ffmpeg does not run"
case $encoders in
*libx264*) ;;
*) die "this ffmpeg has no libx264 encoder, which the clips need" ;;
esac
case $encoders in
*" aac "*) ;;
*) die "this ffmpeg has no aac encoder, which the clips need" ;;
esac
espeak-ng --voices=en 2>/dev/null | grep -q 'en-us' || die "espeak-ng has no en-us voice"

# ---------------------------------------------------------------- output folder

# Every name this script writes into the output folder, and the names a job
# or a review would add, which would not belong to a fresh example.
PROJECT_NAMES="c0_probe.json c05_sync.json c1_transcript.json c1_plan.json c15_order.json
c2_takes.json c3_cuts.json c3_seams.json c4_suggestions.json artifacts_job.json
review_edits.json suggestion_decisions.json events.jsonl waveform.json cloud_job.json pause.json"

if [ -e "$OUT" ] && [ ! -d "$OUT" ]; then
    die "\"$OUT\" exists and is not a folder"
fi
if [ -d "$OUT" ] && [ -n "$(ls -A "$OUT")" ]; then
    [ "$FORCE" -eq 1 ] || die "\"$OUT\" is not empty; give --force to replace the example in it"
    for name in $PROJECT_NAMES; do
        rm -f "$OUT/$name"
    done
    rm -f "$OUT/media/A001.mp4" "$OUT/media/A002.mp4" "$OUT/media/A003.mov" "$OUT/media/external_mic.wav"
fi
mkdir -p "$OUT/media" || die "cannot make \"$OUT\""
OUT=$(cd "$OUT" && pwd -P)
MEDIA="$OUT/media"

WORK=$(mktemp -d "${TMPDIR:-/tmp}/velum-example.XXXXXX") || die "cannot make a temporary folder"
trap 'rm -rf "$WORK"' EXIT
trap 'exit 1' HUP INT TERM
cd "$WORK"

# ---------------------------------------------------------------- constants

RATE=48000 # every sound is 48 kHz mono, 16 bit
FPS=25
SIZE=640x360

# The project's identifier: the folder's own name when it is a UUID (as in a
# store of projects), otherwise a fixed one.
base=${OUT##*/}
if printf '%s\n' "$base" | grep -Eq '^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$'; then
    PROJECT_ID=$(printf '%s' "$base" | tr 'a-f' 'A-F')
else
    PROJECT_ID=3F6C2A9E-51D4-4B7A-8E0C-9D1B7F24A6C5
fi
JOB_ID=job_5c1e9a7d2b
DATE_C0=2026-11-23T10:00:00Z
DATE_C05=2026-11-23T10:00:04Z
DATE_JOB=2026-11-23T10:03:12Z
DATE_STAMP=2026-11-23T10:03:15Z

# Formats a number the way the documents hold it: at most six decimals,
# without trailing zeros.
FMT_AWK='function fmt(x,  s) { s = sprintf("%.6f", x); sub(/0+$/, "", s); sub(/\.$/, "", s); if (s == "-0") s = "0"; return s }'

# num EXPRESSION: evaluates an awk expression and prints it formatted.
num() {
    awk "BEGIN { print fmt($*) } $FMT_AWK" </dev/null
}

# silence FILE SAMPLES
silence() {
    sox -R -n -r "$RATE" -c 1 -b 16 "$1" trim 0 "${2}s"
}

# samples_of SECONDS: the nearest whole number of samples.
samples_of() {
    awk -v s="$1" -v r="$RATE" 'BEGIN { printf "%d\n", s * r + 0.5 }'
}

# ---------------------------------------------------------------- speech

# What is said in each clip, in shooting order. A token "+S" is a pause of S
# seconds before the next word; between other words there is a short natural
# gap. Punctuation stays on the word, as a transcriber writes it.
#
# A001 (shot first, the body): a filler, a long pause, an interrupted line
#   said again in full (the retake), a medium pause and another filler.
# A002 (shot second, the outro): a long pause and a filler.
# A003 (shot last, the hook): a style tic ("So,") and a filler.
SCRIPT_A001='Um, +0.18 first, +0.2 get the mic closer. +1.25 Then turn off the +0.8 Then turn off the fridge. +0.6 Uh, +0.2 and add a rug.'
SCRIPT_A002="That's all for today. +1.25 Uh, +0.15 thanks for watching, +0.3 and see you next week."
SCRIPT_A003='So, +0.12 your audio sounds bad? +0.55 Here are, +0.15 um, +0.2 three easy fixes you can try tonight.'
LEAD_A001=0.45
LEAD_A002=0.4
LEAD_A003=0.5
TAIL_S=0.8 # picture after the last word, at least

# build_speech KEY LEAD SCRIPT: writes KEY.speech.wav (the clip's sound, a
# whole number of frames long) and KEY.tsv (index, text, start, end, filler;
# times in seconds), and sets SPEECH_SAMPLES. Every length is counted in
# samples (soxi -s), so the times are exact to the sample.
build_speech() {
    key=$1
    lead=$2
    script=$3
    : >"$key.samples"
    parts="$key.lead.wav"
    silence "$key.lead.wav" "$(samples_of "$lead")"
    pos=$(soxi -s "$key.lead.wav")
    i=0
    gap=
    for tok in $script; do
        case $tok in
        +*)
            gap=$(samples_of "${tok#+}")
            continue
            ;;
        esac
        if [ "$i" -gt 0 ]; then
            # A natural gap between words, 70 to 120 ms, unless one was given.
            [ -n "$gap" ] || gap=$(((70 + (i * 37) % 6 * 10) * RATE / 1000))
            silence "$key.g$i.wav" "$gap"
            parts="$parts $key.g$i.wav"
            pos=$((pos + $(soxi -s "$key.g$i.wav")))
        fi
        gap=
        plain=${tok%[,.?!:;]}
        case $plain in
        [Uu]m | [Uu]h | [Ee]rm | [Uu]hm) filler=1 ;;
        *) filler=0 ;;
        esac
        # A little variety in speed and pitch, so repeated words differ.
        speed=$((175 + (i * 7) % 16))
        pitch=$((44 + (i * 5) % 12))
        espeak-ng -v en-us -s "$speed" -p "$pitch" -w "$key.w$i.raw.wav" "$plain" ||
            die "espeak-ng failed on \"$plain\""
        # Trim the word's own leading and trailing silence; sox resamples
        # after the trim.
        sox -R "$key.w$i.raw.wav" -r "$RATE" -c 1 -b 16 "$key.w$i.wav" \
            silence 1 0.01 1% reverse silence 1 0.01 1% reverse
        n=$(soxi -s "$key.w$i.wav")
        [ "$n" -gt 0 ] || die "the word \"$plain\" came out silent"
        parts="$parts $key.w$i.wav"
        printf '%d\t%s\t%d\t%d\t%d\n' "$i" "$tok" "$pos" $((pos + n)) "$filler" >>"$key.samples"
        pos=$((pos + n))
        i=$((i + 1))
    done
    awk -F'\t' -v r="$RATE" "{ printf \"%d\\t%s\\t%s\\t%s\\t%d\\n\", \$1, \$2, fmt(\$3 / r), fmt(\$4 / r), \$5 } $FMT_AWK" \
        "$key.samples" >"$key.tsv"
    # The picture runs on a little after the last word, to a whole frame.
    total=$(awk -v p="$pos" -v r="$RATE" -v f="$FPS" -v t="$TAIL_S" \
        'BEGIN { fr = int((p / r + t) * f) + 1; printf "%d\n", fr * r / f }')
    silence "$key.tail.wav" $((total - pos))
    parts="$parts $key.tail.wav"
    # shellcheck disable=SC2086 # the parts are plain names without spaces
    sox -R $parts "$key.speech.wav"
    SPEECH_SAMPLES=$(soxi -s "$key.speech.wav")
    [ "$SPEECH_SAMPLES" -eq "$total" ] || die "$key: speech is $SPEECH_SAMPLES samples, expected $total"
}

say "synthesising speech word by word"
build_speech a001 "$LEAD_A001" "$SCRIPT_A001"
N_A001=$SPEECH_SAMPLES
build_speech a002 "$LEAD_A002" "$SCRIPT_A002"
N_A002=$SPEECH_SAMPLES
build_speech a003 "$LEAD_A003" "$SCRIPT_A003"
N_A003=$SPEECH_SAMPLES

# ---------------------------------------------------------------- clips

# make_clip KEY FILE SOURCE SAMPLES: the camera's picture and sound. The
# camera hears the same speech a little lower and with more room noise.
make_clip() {
    key=$1
    file=$2
    source=$3
    samples=$4
    dur=$(num "$samples / $RATE")
    sox -R -n -r "$RATE" -c 1 -b 16 "$key.camnoise.wav" synth "${samples}s" whitenoise vol 0.02
    sox -R -m -v 0.8 "$key.speech.wav" -v 1 "$key.camnoise.wav" -b 16 "$key.camera.wav"
    ffmpeg -hide_banner -loglevel error -nostdin -y \
        -f lavfi -i "$source=size=$SIZE:rate=$FPS" -i "$key.camera.wav" \
        -map 0:v -map 1:a -t "$dur" \
        -c:v libx264 -preset veryfast -crf 30 -pix_fmt yuv420p -g 50 -threads 2 \
        -c:a aac -b:a 96k -ar "$RATE" -ac 1 \
        -map_metadata -1 -fflags +bitexact -flags:v +bitexact -flags:a +bitexact \
        "$MEDIA/$file" || die "ffmpeg could not make $file"
}

say "encoding the clips"
make_clip a001 A001.mp4 testsrc2 "$N_A001"
make_clip a002 A002.mp4 smptehdbars "$N_A002"
make_clip a003 A003.mov testsrc "$N_A003"

# ---------------------------------------------------------------- external microphone

# The microphone ran the whole session: a little air, then each clip's speech
# at its offset, with the camera stopped in between.
say "laying out the external microphone track"
PRE=$(samples_of 1.7)
BETWEEN_12=$(samples_of 2.3)
BETWEEN_23=$(samples_of 1.9)
silence ext.pre.wav "$PRE"
silence ext.b12.wav "$BETWEEN_12"
silence ext.b23.wav "$BETWEEN_23"
silence ext.post.wav "$(samples_of 1.2)"
OFF_A001=$PRE
OFF_A002=$((OFF_A001 + N_A001 + BETWEEN_12))
OFF_A003=$((OFF_A002 + N_A002 + BETWEEN_23))
sox -R ext.pre.wav a001.speech.wav ext.b12.wav a002.speech.wav ext.b23.wav a003.speech.wav ext.post.wav ext.clean.wav
EXT_SAMPLES=$(soxi -s ext.clean.wav)
[ "$EXT_SAMPLES" -eq $((OFF_A003 + N_A003 + $(samples_of 1.2))) ] || die "the external track has an unexpected length"
sox -R -n -r "$RATE" -c 1 -b 16 ext.noise.wav synth "${EXT_SAMPLES}s" whitenoise vol 0.01
sox -R -m -v 0.9 ext.clean.wav -v 1 ext.noise.wav -b 16 "$MEDIA/external_mic.wav"
OFFSET_A001=$(num "$OFF_A001 / $RATE")
OFFSET_A002=$(num "$OFF_A002 / $RATE")
OFFSET_A003=$(num "$OFF_A003 / $RATE")

# ---------------------------------------------------------------- probing

# probe FILE: sets P_DUR P_FPS P_W P_H P_VC P_AC P_SR P_CH from ffprobe, the
# first video and the first audio stream.
probe() {
    out=$(ffprobe -v error \
        -show_entries format=duration:stream=codec_type,codec_name,avg_frame_rate,r_frame_rate,width,height,sample_rate,channels \
        -of default "$1") || die "ffprobe cannot read $1"
    eval "$(printf '%s\n' "$out" | awk -F= '
        function rate(t,  p) { if (split(t, p, "/") == 2) return (p[2] + 0 > 0) ? p[1] / p[2] : 0; return t + 0 }
        /^\[STREAM\]/ { delete s; next }
        /^\[\/STREAM\]/ {
            if (s["codec_type"] == "video" && !hv) {
                hv = 1; vc = s["codec_name"]; w = s["width"]; h = s["height"]
                fps = ("avg_frame_rate" in s && rate(s["avg_frame_rate"]) > 0) ? rate(s["avg_frame_rate"]) : rate(s["r_frame_rate"])
            }
            if (s["codec_type"] == "audio" && !ha) { ha = 1; ac = s["codec_name"]; sr = s["sample_rate"]; ch = s["channels"] }
            next
        }
        /^\[FORMAT\]/ || /^\[\/FORMAT\]/ { next }
        { k = $1; sub(/^[^=]*=/, ""); s[k] = $0; if (k == "duration") dur = $0 }
        END {
            printf "P_DUR=%s P_FPS=%s P_W=%s P_H=%s P_VC=%s P_AC=%s P_SR=%s P_CH=%s\n", \
                dur, (hv ? fmt(fps) : ""), (hv ? w : ""), (hv ? h : ""), vc, ac, sr, ch
        }
        '"$FMT_AWK")"
    [ -n "$P_DUR" ] || die "ffprobe gives no duration for $1"
}

# media_json INDENT CLIP_ID: the ClipMedia object of the last probe.
media_json() {
    ind=$1
    {
        printf '{\n'
        [ -z "$P_CH" ] || printf '%s  "audio_channels" : %s,\n' "$ind" "$P_CH"
        [ -z "$P_AC" ] || printf '%s  "audio_codec" : "%s",\n' "$ind" "$P_AC"
        [ -z "$P_SR" ] || printf '%s  "audio_sample_rate" : %s,\n' "$ind" "$P_SR"
        printf '%s  "clip_id" : "%s",\n' "$ind" "$2"
        printf '%s  "duration_s" : %s' "$ind" "$(num "$P_DUR")"
        [ -z "$P_FPS" ] || printf ',\n%s  "fps" : %s' "$ind" "$P_FPS"
        [ -z "$P_H" ] || printf ',\n%s  "height" : %s' "$ind" "$P_H"
        [ -z "$P_VC" ] || printf ',\n%s  "video_codec" : "%s"' "$ind" "$P_VC"
        [ -z "$P_W" ] || printf ',\n%s  "width" : %s' "$ind" "$P_W"
        printf '\n%s}' "$ind"
    }
}

say "probing and hashing the media"
sha() { sha256sum "$1" | awk '{ print $1 }'; }
ID_A001=$(sha "$MEDIA/A001.mp4")
ID_A002=$(sha "$MEDIA/A002.mp4")
ID_A003=$(sha "$MEDIA/A003.mov")
ID_EXT=$(sha "$MEDIA/external_mic.wav")

# The media's duration must exceed the last word's end in every clip.
for key in a001 a002 a003; do
    case $key in
    a001) file=A001.mp4 ;;
    a002) file=A002.mp4 ;;
    a003) file=A003.mov ;;
    esac
    probe "$MEDIA/$file"
    last=$(awk -F'\t' 'END { print $4 }' "$key.tsv")
    awk -v d="$P_DUR" -v e="$last" 'BEGIN { exit !(d > e) }' ||
        die "$file lasts $P_DUR s, not past its last word at $last s"
    case $key in
    a001) id=$ID_A001 ;;
    a002) id=$ID_A002 ;;
    a003) id=$ID_A003 ;;
    esac
    media_json '      ' "$id" >"$key.media.json"
done
probe "$MEDIA/external_mic.wav"
media_json '      ' "$ID_EXT" >ext.media.json
[ "$P_SR" = "$RATE" ] || die "the external track is $P_SR Hz, not $RATE"

# ---------------------------------------------------------------- word helpers

# w KEY INDEX start|end|text
w() {
    awk -F'\t' -v i="$2" -v f="$3" '
        $1 == i { print (f == "text" ? $2 : f == "start" ? $3 : $4); found = 1 }
        END { exit !found }' "$1.tsv" || die "no word $2 in clip $1"
}

# words_text KEY FROM TO: the words FROM up to one before TO, joined.
words_text() {
    awk -F'\t' -v a="$2" -v b="$3" '$1 >= a && $1 < b { s = s (s == "" ? "" : " ") $2 } END { print s }' "$1.tsv"
}

count_words() { awk 'END { print NR }' "$1.tsv"; }

# write NAME: the document from standard input, written whole or not at all,
# and like Velum's own writer without a line break after the closing brace.
write() {
    awk '{ if (NR > 1) print prev; prev = $0 } END { printf "%s", prev }' >"$OUT/$1.part" &&
        mv "$OUT/$1.part" "$OUT/$1"
}

# signal NAME TOOL VERSION [LAST]: one signal of an extraction trailer.
signal() {
    printf '      "%s" : {\n        "status" : "ok",\n        "tool" : "%s",\n        "version" : "%s"\n      }' "$1" "$2" "$3"
    [ "${4:-}" = last ] && printf '\n' || printf ',\n'
}

say "writing the stage documents"

# ---------------------------------------------------------------- c0_probe.json

# probe_clip ID FILE ROLE MEDIA_JSON [LAST]
probe_clip() {
    printf '    {\n'
    printf '      "clip_id" : "%s",\n' "$1"
    printf '      "filename" : "%s",\n' "$2"
    printf '      "media" : '
    cat "$4"
    printf ',\n'
    printf '      "path" : "%s",\n' "$MEDIA/$2"
    printf '      "role" : "%s",\n' "$3"
    printf '      "state" : "ok"\n'
    [ "${5:-}" = last ] && printf '    }\n' || printf '    },\n'
}

{
    printf '{\n  "clips" : [\n'
    probe_clip "$ID_A001" A001.mp4 a_roll a001.media.json
    probe_clip "$ID_A002" A002.mp4 a_roll a002.media.json
    probe_clip "$ID_A003" A003.mov a_roll a003.media.json
    probe_clip "$ID_EXT" external_mic.wav external_audio ext.media.json last
    printf '  ],\n  "created_at" : "%s",\n  "extraction" : {\n    "signals" : {\n' "$DATE_C0"
    signal clip_id sha256 sha256/1
    signal probe ffprobe ffmpeg/8.1
    signal validation media-validator media-validator/4 last
    printf '    }\n  },\n  "project_id" : "%s",\n  "schema_version" : 2\n}\n' "$PROJECT_ID"
} | write c0_probe.json

# ---------------------------------------------------------------- c05_sync.json

write c05_sync.json <<EOF
{
  "clips" : [
    {
      "clip_id" : "$ID_A001",
      "confidence" : 14.62,
      "filename" : "A001.mp4",
      "is_synced" : true,
      "offset_s" : $OFFSET_A001,
      "shooting_index" : 0,
      "sync_source" : "cross_correlation"
    },
    {
      "clip_id" : "$ID_A002",
      "confidence" : 9.87,
      "filename" : "A002.mp4",
      "is_synced" : true,
      "offset_s" : $OFFSET_A002,
      "shooting_index" : 1,
      "sync_source" : "cross_correlation"
    },
    {
      "clip_id" : "$ID_A003",
      "confidence" : 11.35,
      "filename" : "A003.mov",
      "is_synced" : true,
      "offset_s" : $OFFSET_A003,
      "shooting_index" : 2,
      "sync_source" : "cross_correlation"
    }
  ],
  "created_at" : "$DATE_C05",
  "external_clip_id" : "$ID_EXT",
  "extraction" : {
    "signals" : {
      "sync" : {
        "status" : "ok",
        "tool" : "envelope-xcorr",
        "version" : "audio-sync/1"
      }
    }
  },
  "project_id" : "$PROJECT_ID",
  "schema_version" : 1
}
EOF

# ---------------------------------------------------------------- c1_transcript.json

# transcript_clip KEY ID FILE [LAST]
transcript_clip() {
    printf '    {\n'
    printf '      "audio_source" : "external",\n'
    printf '      "clip_id" : "%s",\n' "$2"
    printf '      "filename" : "%s",\n' "$3"
    printf '      "language" : "en",\n'
    printf '      "transcription" : "%s",\n' "$(words_text "$1" 0 100000)"
    printf '      "words" : [\n'
    awk -F'\t' '
        { n++; ix[n] = $1; tx[n] = $2; st[n] = $3; en[n] = $4; fl[n] = $5 }
        END {
            for (i = 1; i <= n; i++) {
                print "        {"
                printf "          \"confidence\" : %s,\n", (fl[i] ? 0.81 + (ix[i] % 3) * 0.04 : 0.9 + ((ix[i] * 7) % 10) / 100)
                printf "          \"end\" : %s,\n", en[i]
                if (fl[i]) printf "          \"filler_confidence\" : %s,\n", 0.97
                printf "          \"is_filler\" : %s,\n", (fl[i] ? "true" : "false")
                printf "          \"start\" : %s,\n", st[i]
                printf "          \"text\" : \"%s\"\n", tx[i]
                printf "        }%s\n", (i < n ? "," : "")
            }
        }' "$1.tsv"
    printf '      ]\n'
    [ "${4:-}" = last ] && printf '    }\n' || printf '    },\n'
}

{
    printf '{\n  "clips" : [\n'
    transcript_clip a001 "$ID_A001" A001.mp4
    transcript_clip a002 "$ID_A002" A002.mp4
    transcript_clip a003 "$ID_A003" A003.mov last
    printf '  ],\n  "created_at" : "%s",\n  "extraction" : {\n    "signals" : {\n' "$DATE_JOB"
    signal fillers filler-lexicon fillers/2
    signal transcript speech-to-text transcribe/3 last
    printf '    }\n  },\n  "project_id" : "%s",\n  "schema_version" : 1\n}\n' "$PROJECT_ID"
} | write c1_transcript.json

# ---------------------------------------------------------------- c1_plan.json

# Positions count through the clips in timeline order: A003, A001, A002.
NW_A001=$(count_words a001)
NW_A002=$(count_words a002)
NW_A003=$(count_words a003)
PLAN_1=$NW_A003
PLAN_2=$((PLAN_1 + NW_A001))
PLAN_TOTAL=$((PLAN_2 + NW_A002))

write c1_plan.json <<EOF
{
  "clip_order" : [
    "$ID_A003",
    "$ID_A001",
    "$ID_A002"
  ],
  "schema_version" : 1,
  "sections" : [
    {
      "about" : "The problem and the promise of three easy fixes",
      "end" : $PLAN_1,
      "name" : "Hook",
      "start" : 0
    },
    {
      "about" : "Mic distance, the fridge, a rug",
      "end" : $PLAN_2,
      "name" : "Three fixes",
      "start" : $PLAN_1
    },
    {
      "about" : "Thanks and goodbye",
      "end" : $PLAN_TOTAL,
      "name" : "Sign-off",
      "start" : $PLAN_2
    }
  ],
  "subject" : "Three easy fixes for bad audio at home",
  "total_words" : $PLAN_TOTAL
}
EOF

# ---------------------------------------------------------------- c15_order.json

# Keys are written sorted, and the hashes decide the order of the roles.
ROLES=$(printf '%s body\n%s outro\n%s hook\n' "$ID_A001" "$ID_A002" "$ID_A003" | LC_ALL=C sort |
    awk '{ printf "%s    \"%s\" : \"%s\"", (NR > 1 ? ",\n" : ""), $1, $2 }')

write c15_order.json <<EOF
{
  "created_at" : "$DATE_JOB",
  "extraction" : {
    "signals" : {
      "order" : {
        "status" : "ok",
        "tool" : "llm",
        "version" : "clip-order/1"
      }
    }
  },
  "project_id" : "$PROJECT_ID",
  "reason" : "The last take asks the viewer a question and makes the strongest opening; the fixes follow, and the goodbye closes.",
  "roles" : {
$ROLES
  },
  "schema_version" : 1,
  "shooting_order" : [
    "$ID_A001",
    "$ID_A002",
    "$ID_A003"
  ],
  "source" : "llm",
  "timeline_order" : [
    "$ID_A003",
    "$ID_A001",
    "$ID_A002"
  ]
}
EOF

# ---------------------------------------------------------------- c2_takes.json

# A001: words 6-9 "Then turn off the" are cut off, and 10-14 say the line in
# full. The later, complete take wins.
T1_START=$(w a001 6 start)
T1_END=$(w a001 9 end)
T2_START=$(w a001 10 start)
T2_END=$(w a001 14 end)

write c2_takes.json <<EOF
{
  "clusters" : [
    {
      "anchor" : "Then turn off the",
      "cluster_id" : 1,
      "confirmation" : "confirmed",
      "confirmation_confidence" : 0.94,
      "confirmation_reason" : "The first attempt breaks off mid-sentence; the second says the whole line.",
      "cross_clip" : false,
      "self_check_passed" : true,
      "similarity" : 0.88,
      "takes" : [
        {
          "clip_id" : "$ID_A001",
          "end_s" : $T1_END,
          "excerpt" : "$(words_text a001 6 10)",
          "shooting_index" : 0,
          "start_s" : $T1_START,
          "take_id" : "c1-t1",
          "word_end" : 10,
          "word_start" : 6
        },
        {
          "clip_id" : "$ID_A001",
          "end_s" : $T2_END,
          "excerpt" : "$(words_text a001 10 15)",
          "shooting_index" : 0,
          "start_s" : $T2_START,
          "take_id" : "c1-t2",
          "word_end" : 15,
          "word_start" : 10
        }
      ],
      "winner_by_rule" : "c1-t2"
    }
  ],
  "created_at" : "$DATE_JOB",
  "cuts" : [
    {
      "clip_id" : "$ID_A001",
      "cluster_id" : 1,
      "end_s" : $T1_END,
      "reason" : "interrupted take, said again in full later",
      "start_s" : $T1_START,
      "word_end" : 10,
      "word_start" : 6
    }
  ],
  "extraction" : {
    "signals" : {
      "confirmation" : {
        "status" : "ok",
        "tool" : "llm",
        "version" : "take-confirm/1"
      },
      "takes" : {
        "status" : "ok",
        "tool" : "take-matcher",
        "version" : "takes/2"
      }
    }
  },
  "project_id" : "$PROJECT_ID",
  "rejected_regions" : [],
  "schema_version" : 2
}
EOF

# ---------------------------------------------------------------- c3_cuts.json

# word_range KEY FROM TO INDENT: a WordRange over words FROM..TO-1.
word_range() {
    printf '%s{\n' "$4"
    printf '%s  "end_s" : %s,\n' "$4" "$(w "$1" $(($3 - 1)) end)"
    printf '%s  "start_s" : %s,\n' "$4" "$(w "$1" "$2" start)"
    printf '%s  "text" : "%s",\n' "$4" "$(words_text "$1" "$2" "$3")"
    printf '%s  "word_end" : %s,\n' "$4" "$3"
    printf '%s  "word_start" : %s\n' "$4" "$2"
    printf '%s}' "$4"
}

# gap KEY AFTER_WORD KEEP_S REASON INDENT: the pause after a word with KEEP_S
# of air left at each side; REASON "-" leaves the reason out, and a KEEP_S of
# "band" marks a kept pause of full length.
gap() {
    a=$(w "$1" "$2" end)
    b=$(w "$1" $(($2 + 1)) start)
    if [ "$3" = band ]; then
        s=$a
        e=$b
        removed=0
    else
        s=$(num "$a + $3")
        e=$(num "$b - $3")
        removed=$(num "($e - $s) * 1000")
    fi
    printf '%s{\n' "$5"
    printf '%s  "after_word" : %s,\n' "$5" "$2"
    printf '%s  "end_s" : %s,\n' "$5" "$e"
    [ "$4" = - ] || printf '%s  "reason" : "%s",\n' "$5" "$4"
    printf '%s  "removed_ms" : %s,\n' "$5" "$removed"
    printf '%s  "start_s" : %s\n' "$5" "$s"
    printf '%s}' "$5"
}

I8='        '
{
    cat <<EOF
{
  "clips" : [
    {
      "band_pauses" : [
$(gap a001 14 band - "$I8")
      ],
      "clip_id" : "$ID_A001",
      "filename" : "A001.mp4",
      "filler_cuts" : [
$(word_range a001 0 1 "$I8"),
$(word_range a001 15 16 "$I8")
      ],
      "filler_source" : "lexicon",
      "hidden_silence_cuts" : [],
      "kept_tics" : [],
      "merged_islands" : [],
      "silence_cuts" : [
$(gap a001 5 0.15 silence "$I8")
      ]
    },
    {
      "band_pauses" : [],
      "clip_id" : "$ID_A002",
      "filename" : "A002.mp4",
      "filler_cuts" : [
$(word_range a002 4 5 "$I8")
      ],
      "filler_source" : "lexicon",
      "hidden_silence_cuts" : [
$(gap a002 7 0.08 - "$I8")
      ],
      "kept_tics" : [],
      "merged_islands" : [],
      "silence_cuts" : [
$(gap a002 3 0.15 silence "$I8")
      ]
    },
    {
      "band_pauses" : [],
      "clip_id" : "$ID_A003",
      "filename" : "A003.mov",
      "filler_cuts" : [
$(word_range a003 7 8 "$I8")
      ],
      "filler_source" : "lexicon",
      "hidden_silence_cuts" : [
$(gap a003 4 0.12 - "$I8")
      ],
      "kept_tics" : [
        0
      ],
      "merged_islands" : [],
      "silence_cuts" : []
    }
  ],
  "created_at" : "$DATE_JOB",
  "extraction" : {
    "signals" : {
      "cleanup" : {
        "status" : "ok",
        "tool" : "cleanup",
        "version" : "cleanup/4"
      },
      "fillers" : {
        "status" : "ok",
        "tool" : "filler-lexicon",
        "version" : "fillers/2"
      }
    }
  },
  "params" : {
    "cut_style" : {
      "after_p10_ms" : 60,
      "after_p50_ms" : 110,
      "after_p90_ms" : 190,
      "before_p10_ms" : 40,
      "before_p50_ms" : 80,
      "before_p90_ms" : 150
    },
    "hesitation_mode" : "conditional",
    "hesitation_thresholds" : {
      "max_duration_ms" : 400,
      "max_gap_ms" : 250
    },
    "keep_all_tokens" : [
      "so"
    ],
    "min_clip_s" : 0.5,
    "pause_band_ms" : 450,
    "pause_threshold_ms" : 1000,
    "seam_tightness_ms" : 150,
    "source" : "profile"
  },
  "project_id" : "$PROJECT_ID",
  "schema_version" : 1
}
EOF
} | write c3_cuts.json

# ---------------------------------------------------------------- c3_seams.json

# seam INDEX EDGE OFFSET [LAST]
seam() {
    printf '        {\n          "edge" : "%s",\n          "offset_s" : %s,\n          "word_index" : %s\n        }' "$2" "$3" "$1"
    [ "${4:-}" = last ] && printf '\n' || printf ',\n'
}

{
    printf '{\n  "clips" : [\n'
    printf '    {\n      "clip_id" : "%s",\n      "seams" : [\n' "$ID_A001"
    seam 1 leading 0.06
    seam 5 trailing 0.12
    seam 10 leading 0.05
    seam 14 trailing -1
    seam 16 leading 0.05 last
    printf '      ]\n    },\n'
    printf '    {\n      "clip_id" : "%s",\n      "seams" : [\n' "$ID_A002"
    seam 3 trailing 0.1
    seam 5 leading 0.04 last
    printf '      ]\n    },\n'
    printf '    {\n      "clip_id" : "%s",\n      "seams" : [\n' "$ID_A003"
    seam 6 trailing 0.05
    seam 8 leading 0.06 last
    printf '      ]\n    }\n'
    printf '  ],\n  "created_at" : "%s",\n  "extraction" : {\n    "signals" : {\n' "$DATE_JOB"
    signal seams seam-fit seams/2 last
    printf '    }\n  },\n  "project_id" : "%s",\n  "schema_version" : 2\n}\n' "$PROJECT_ID"
} | write c3_seams.json

# ---------------------------------------------------------------- c4_suggestions.json

PAUSE_START=$(w a001 14 end)
PAUSE_END=$(w a001 15 start)
PAUSE_MS=$(num "($PAUSE_END - $PAUSE_START) * 1000")
RAMBLE_START=$(w a003 5 start)
RAMBLE_END=$(w a003 14 end)
RAMBLE_S=$(num "$RAMBLE_END - $RAMBLE_START")
RAMBLE_RATE=$(num "int(10 / ($RAMBLE_END - $RAMBLE_START) * 100 + 0.5) / 100")
TIMELINE_S=$(num "($N_A001 + $N_A002 + $N_A003) / $RATE")
SPEECH_S=$(cat a001.tsv a002.tsv a003.tsv | awk -F'\t' "{ s += \$4 - \$3 } END { print fmt(s) } $FMT_AWK")

write c4_suggestions.json <<EOF
{
  "created_at" : "$DATE_JOB",
  "extraction" : {
    "signals" : {
      "suggestions" : {
        "status" : "ok",
        "tool" : "llm",
        "version" : "suggest/1"
      }
    }
  },
  "project_id" : "$PROJECT_ID",
  "schema_version" : 1,
  "suggestions" : [
    {
      "clip_id" : "$ID_A001",
      "end_s" : $PAUSE_END,
      "evidence" : {
        "pause_band_ms" : 450,
        "pause_ms" : $PAUSE_MS,
        "pause_threshold_ms" : 1000
      },
      "id" : "sg-pause-a001-14",
      "kind" : "pause",
      "reason" : "This pause before the last fix is kept by your style, but it is the longest kept pause in the video.",
      "source" : "c4",
      "start_s" : $PAUSE_START
    },
    {
      "clip_id" : "$ID_A003",
      "end_s" : $RAMBLE_END,
      "evidence" : {
        "fillers" : 1,
        "seconds" : $RAMBLE_S,
        "words" : 10,
        "words_per_s" : $RAMBLE_RATE
      },
      "id" : "sg-ramble-a003-5",
      "kind" : "ramble",
      "reason" : "The hook takes a while to reach its promise; it could start at \"three easy fixes\".",
      "source" : "c4",
      "start_s" : $RAMBLE_START,
      "word_end" : 15,
      "word_start" : 5
    },
    {
      "end_s" : $TIMELINE_S,
      "evidence" : {
        "speech_s" : $SPEECH_S,
        "timeline_s" : $TIMELINE_S
      },
      "id" : "sg-video-length",
      "kind" : "video_length",
      "reason" : "The whole video is under half a minute; your published videos run longer.",
      "source" : "c4",
      "start_s" : 0
    }
  ]
}
EOF

# ---------------------------------------------------------------- artifacts_job.json

write artifacts_job.json <<EOF
{
  "completed_at" : "$DATE_STAMP",
  "job_id" : "$JOB_ID",
  "schema" : 1
}
EOF

# ---------------------------------------------------------------- checks

# A small JSON syntax check in awk: the whole file must be one value.
# shellcheck disable=SC2016 # an awk program, not shell
JSON_CHECK_AWK='
function fail(m) { printf "%s: %s near offset %d\n", FILENAME, m, p > "/dev/stderr"; bad = 1; exit 1 }
function ws() { while (p <= n && index(" \t\n\r", substr(t, p, 1))) p++ }
function str(  c) {
    if (substr(t, p, 1) != "\"") fail("expected a string")
    p++
    while (p <= n) {
        c = substr(t, p, 1)
        if (c == "\\") { p += 2; continue }
        if (c == "\"") { p++; return }
        if (c == "\n") fail("line break in a string")
        p++
    }
    fail("unterminated string")
}
function value(  c, m) {
    ws(); c = substr(t, p, 1)
    if (c == "{") {
        p++; ws()
        if (substr(t, p, 1) == "}") { p++; return }
        while (1) {
            ws(); str(); ws()
            if (substr(t, p, 1) != ":") fail("expected a colon")
            p++; value(); ws(); c = substr(t, p, 1); p++
            if (c == "}") return
            if (c != ",") fail("expected a comma or a closing brace")
        }
    }
    if (c == "[") {
        p++; ws()
        if (substr(t, p, 1) == "]") { p++; return }
        while (1) {
            value(); ws(); c = substr(t, p, 1); p++
            if (c == "]") return
            if (c != ",") fail("expected a comma or a closing bracket")
        }
    }
    if (c == "\"") { str(); return }
    if (match(substr(t, p), /^-?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][-+]?[0-9]+)?/)) { p += RLENGTH; return }
    if (substr(t, p, 4) == "true" || substr(t, p, 4) == "null") { p += 4; return }
    if (substr(t, p, 5) == "false") { p += 5; return }
    fail("unexpected text")
}
{ t = t $0 "\n" }
END {
    if (bad) exit 1
    n = length(t); p = 1
    value(); ws()
    if (p <= n) fail("text after the value")
}'

say "checking the documents"
for name in c0_probe.json c05_sync.json c1_transcript.json c1_plan.json c15_order.json \
    c2_takes.json c3_cuts.json c3_seams.json c4_suggestions.json artifacts_job.json; do
    awk "$JSON_CHECK_AWK" "$OUT/$name" || die "$name is not valid JSON"
done
# With Python at hand, also parse them properly and check that every object
# lists its keys sorted, as Velum writes them.
if command -v python3 >/dev/null 2>&1; then
    python3 - "$OUT" <<'PY' || die "a document failed the Python check"
import json, os, sys
def sorted_pairs(pairs):
    keys = [k for k, _ in pairs]
    if keys != sorted(keys):
        raise ValueError("keys not sorted: %s" % keys)
    return dict(pairs)
for name in sorted(os.listdir(sys.argv[1])):
    if name.endswith(".json"):
        with open(os.path.join(sys.argv[1], name), encoding="utf-8") as f:
            try:
                json.load(f, object_pairs_hook=sorted_pairs)
            except ValueError as e:
                sys.exit("%s: %s" % (name, e))
PY
fi

if [ -n "${VELUM_CLI:-}" ]; then
    "$VELUM_CLI" review "$OUT" --json "$WORK/review.json" >"$WORK/review.log" 2>&1 || {
        cat "$WORK/review.log" >&2
        die "\"$VELUM_CLI review\" could not open the project"
    }
    [ -s "$WORK/review.json" ] || die "\"$VELUM_CLI review\" wrote nothing"
    say "velum-cli review opened the project"
fi

say "done: $OUT"
say "clips: A001.mp4 $(num "$N_A001 / $RATE") s at $OFFSET_A001 s, A002.mp4 $(num "$N_A002 / $RATE") s at $OFFSET_A002 s, A003.mov $(num "$N_A003 / $RATE") s at $OFFSET_A003 s; external_mic.wav $(num "$EXT_SAMPLES / $RATE") s"
