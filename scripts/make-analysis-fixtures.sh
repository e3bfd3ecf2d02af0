#!/usr/bin/env bash
# Generates the audio fixtures of the loudness and cue-point analysis tests, with Debian tools only
# (sox, ffmpeg, coreutils). Usage: bash scripts/make-analysis-fixtures.sh OUTDIR
# Deterministic (sox -R repeatable noise, bit-exact encoders) and idempotent: when OUTDIR already holds
# the files of this very script version it returns at once.
#
# OUTDIR/cue/      2 s digital silence, 10 s pink noise, 3 s digital silence (stereo, 44.1 kHz):
#   gap.wav gap.flac gap.mp3 (128 kb/s, with its gapless header)
#   tone.wav   the same shape with a 1 kHz sine at -12 dBFS instead of noise
# OUTDIR/fade/fade.wav   20 s pink noise, then a 6 s linear fade-out to nothing (26 s in all)
# OUTDIR/silence/silence.wav   5 s of digital silence
# OUTDIR/formats/  1 s silence, 4 s pink noise, 1 s silence:
#   mono.wav (16 bit), 8bit.wav (unsigned 8 bit, mono), 96k.flac (96 kHz, 24 bit, stereo),
#   surround.wav (6 channels, 5.1)
# OUTDIR/bad/
#   empty.mp3        0 bytes
#   truncated.mp3    the first half of cue/gap.mp3
#   truncated.wav    cue/gap.wav cut in the middle of its samples (the header still claims all)
#   corrupt.mp3      cue/gap.mp3 with 16 KiB of noise bytes written over its middle
#   notaudio.mp3     text
#   random.flac      pseudo-random bytes
#   unsupported.wav  a RIFF/WAVE file whose format tag (0x4242) no decoder knows
#   zero.wav         a valid 16-bit stereo WAV header with no samples at all
set -euo pipefail

if [[ $# -ne 1 ]]; then
    echo "usage: $0 OUTDIR" >&2
    exit 2
fi
out=$1
script_sum=$(sha1sum "${BASH_SOURCE[0]}" | cut -d' ' -f1)
stamp=$out/.fixtures-version

expected=(
    cue/gap.wav cue/gap.flac cue/gap.mp3 cue/tone.wav fade/fade.wav silence/silence.wav
    formats/mono.wav formats/8bit.wav formats/96k.flac formats/surround.wav
    bad/empty.mp3 bad/truncated.mp3 bad/truncated.wav bad/corrupt.mp3 bad/notaudio.mp3 bad/random.flac
    bad/unsupported.wav bad/zero.wav
)
up_to_date() {
    [[ -f "$stamp" && "$(cat "$stamp")" == "$script_sum" ]] || return 1
    local f
    for f in "${expected[@]}"; do
        [[ -e "$out/$f" ]] || return 1
    done
}
if up_to_date; then
    exit 0
fi

mkdir -p "$out"/{cue,fade,silence,formats,bad}
work=$(mktemp -d "${TMPDIR:-/tmp}/ondaro-analysis-fixtures.XXXXXX")
trap 'rm -rf "$work"' EXIT

# sox -D everywhere: its automatic dither would put noise into the digital silence.
ff=(ffmpeg -nostdin -hide_banner -loglevel error -y -threads 1)
bitexact=(-fflags +bitexact -flags:a +bitexact -map_metadata -1)

# Every file is made under a temporary name and moved into place, so no reader sees half a file.
place() { # place <made file> <final path>
    mv -f "$1" "$out/$2"
}

# silence <file> <seconds> <rate> <channels> [sox output options...]
silence() {
    local f=$1 s=$2 r=$3 c=$4
    shift 4
    sox -D -n -r "$r" -c "$c" "$@" "$f" trim 0 "$s"
}
# noise <file> <seconds> <rate> <channels> [sox output options...]: pink noise about -16 dBFS RMS
noise() {
    local f=$1 s=$2 r=$3 c=$4
    shift 4
    sox -D -R -n -r "$r" -c "$c" "$@" "$f" synth "$s" pinknoise vol 0.3
}

# Cue points
silence "$work/s2.wav" 2 44100 2 -b 16
noise "$work/n10.wav" 10 44100 2 -b 16
silence "$work/s3.wav" 3 44100 2 -b 16
sox -D "$work/s2.wav" "$work/n10.wav" "$work/s3.wav" "$work/gap.wav"
"${ff[@]}" -i "$work/gap.wav" "${bitexact[@]}" -c:a flac "$work/gap.flac"
"${ff[@]}" -i "$work/gap.wav" "${bitexact[@]}" -c:a libmp3lame -b:a 128k -id3v2_version 0 -write_id3v1 0 \
    "$work/gap.mp3"
sox -D -n -r 44100 -c 2 -b 16 "$work/t10.wav" synth 10 sine 1000 vol 0.25
sox -D "$work/s2.wav" "$work/t10.wav" "$work/s3.wav" "$work/tone.wav"

# Fade-out: t = linear
sox -D -R -n -r 44100 -c 2 -b 16 "$work/fade.wav" synth 26 pinknoise vol 0.3 fade t 0 26 6

silence "$work/silence.wav" 5 44100 2 -b 16

# Formats: each 1 s silence, 4 s noise, 1 s silence
shape() { # shape <final> <rate> <channels> [sox output options...]
    local final=$1 r=$2 c=$3
    shift 3
    silence "$work/fa.wav" 1 "$r" "$c" -b 24
    noise "$work/fb.wav" 4 "$r" "$c" -b 24
    silence "$work/fc.wav" 1 "$r" "$c" -b 24
    sox -D "$work/fa.wav" "$work/fb.wav" "$work/fc.wav" "$@" "$work/shape-out.${final##*.}"
    place "$work/shape-out.${final##*.}" "$final"
}
shape formats/mono.wav 44100 1 -b 16
shape formats/8bit.wav 44100 1 -b 8 -e unsigned-integer
shape formats/96k.flac 96000 2 -b 24
silence "$work/sa.wav" 1 48000 6 -b 16
noise "$work/sb.wav" 4 48000 6 -b 16
silence "$work/sc.wav" 1 48000 6 -b 16
sox -D "$work/sa.wav" "$work/sb.wav" "$work/sc.wav" "$work/six.wav"
"${ff[@]}" -i "$work/six.wav" "${bitexact[@]}" -af "aformat=channel_layouts=5.1" -c:a pcm_s16le "$work/surround.wav"

# Bad input
: >"$work/empty.mp3"
size=$(stat -c %s "$work/gap.mp3")
head -c $((size / 2)) "$work/gap.mp3" >"$work/truncated.mp3"
size=$(stat -c %s "$work/gap.wav")
head -c $((size / 3)) "$work/gap.wav" >"$work/truncated.wav"
cp "$work/gap.mp3" "$work/corrupt.mp3"
sox -D -R -n -t raw -e unsigned-integer -b 8 -c 1 -r 8000 "$work/noise.raw" synth 3 whitenoise
head -c 16384 "$work/noise.raw" >"$work/noise16k.bin"
dd if="$work/noise16k.bin" of="$work/corrupt.mp3" bs=1 seek=$((size / 6)) conv=notrunc status=none
tail -c 4096 "$work/noise.raw" >"$work/random.flac"
printf 'This is not audio at all.\nIt is two lines of text.\n' >"$work/notaudio.mp3"

le16() { printf "\\$(printf '%03o' $(($1 & 255)))\\$(printf '%03o' $((($1 >> 8) & 255)))"; }
le32() { le16 $(($1 & 65535)); le16 $((($1 >> 16) & 65535)); }
# wavfile <file> <format tag> <channels> <rate> <bits> <data bytes>: a canonical 44-byte header and
# that many zero bytes of samples.
wavfile() {
    local f=$1 tag=$2 ch=$3 rate=$4 bits=$5 data=$6
    local align=$((ch * bits / 8))
    {
        printf 'RIFF'
        le32 $((36 + data))
        printf 'WAVEfmt '
        le32 16
        le16 "$tag"
        le16 "$ch"
        le32 "$rate"
        le32 $((rate * align))
        le16 "$align"
        le16 "$bits"
        printf 'data'
        le32 "$data"
        head -c "$data" /dev/zero
    } >"$f"
}
wavfile "$work/unsupported.wav" $((0x4242)) 2 44100 16 8000
wavfile "$work/zero.wav" 1 2 44100 16 0

for f in gap.wav gap.flac gap.mp3 tone.wav; do place "$work/$f" "cue/$f"; done
place "$work/fade.wav" fade/fade.wav
place "$work/silence.wav" silence/silence.wav
place "$work/surround.wav" formats/surround.wav
for f in empty.mp3 truncated.mp3 truncated.wav corrupt.mp3 notaudio.mp3 random.flac unsupported.wav zero.wav; do
    place "$work/$f" "bad/$f"
done

echo "$script_sum" >"$stamp"
