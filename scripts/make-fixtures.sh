#!/usr/bin/env bash
# Generates the small audio fixtures the tests read, with Debian tools only (ffmpeg, sox, coreutils).
# Usage: bash scripts/make-fixtures.sh OUTDIR
# Output is deterministic (bit-exact encoders, fixed seeds) and the script is idempotent: when OUTDIR
# already holds the files of this very script version it returns at once.
#
# OUTDIR/tagged/  2.5 s, 440 Hz tone, each with its own tags:
#   tone.mp3   ID3v2.3  artist "Mp3 Artist"  title "Mp3 Title"  album "Mp3 Album"
#                       genre "Rock"  comment "mp3 comment"  year 2001
#   tone.flac  Xiph     artist "Flac Artist" title "Flac Title" album "Flac Album"
#                       genre "Jazz"  comment "flac comment" year 2002
#   tone.ogg   Xiph     artist "Ogg Artist"  title "Ogg Title"  album "Ogg Album"
#                       genre "Pop"   comment "ogg comment"  year 2003
#   tone.opus  Xiph     artist "Opus Artist" title "Opus Title" album "Opus Album"
#                       genre "Blues" comment "opus comment" year 2004
#   tone.m4a   MP4/AAC  artist "M4a Artist"  title "M4a Title"  album "M4a Album"
#                       genre "Soul"  comment "m4a comment"  year 2005
#   tone.wav   RIFF INFO only (no ID3v2): IART "Wav Artist" INAM "Wav Title" IPRD "Wav Album"
#                       IGNR "Folk"  ICMT "wav comment"  ICRD "2006"
#   artist-only.mp3  ID3v2.3 with artist "Tag Artist" and no title (1 s)
#   "Name Artist - Name Song.mp3"  ID3v2.3 with artist "Tag Artist" and no title (1 s)
# OUTDIR/untagged/  1 s mp3 files with no tag at all:
#   "Artist - Song.mp3", "-Song.mp3", " - Song.mp3", "Band - Live - Set.mp3", "a.b.mp3",
#   "NoSeparator.mp3"
# OUTDIR/bad/
#   empty.mp3      0 bytes
#   truncated.mp3  the first 300 bytes of an untagged 128 kb/s mp3 without a frame-count header
#                  (less than one frame)
#   random.mp3     4096 pseudo-random bytes (sox white noise, repeatable mode)
#   random.flac    4096 other pseudo-random bytes
#   notaudio.txt   plain text
# OUTDIR/odd name's "folder" ü/   (spaces, quotes, non-ASCII)
#   "Ünïcödé Artist - Ça va.mp3"  untagged, 1 s
#   "it's \"quoted\".ogg"         untagged, 1 s (title from the file name)
# OUTDIR/scan/
#   short.wav  1.5 s PCM (exactly 66150 frames at 44.1 kHz)
#   short.mp3  1.5 s mp3 (with encoder delay header)
#   short.ogg  1.5 s Vorbis
#   garbage.mp3  text, not audio
set -euo pipefail

if [[ $# -ne 1 ]]; then
    echo "usage: $0 OUTDIR" >&2
    exit 2
fi
out=$1
script_sum=$(sha1sum "${BASH_SOURCE[0]}" | cut -d' ' -f1)
stamp=$out/.fixtures-version
odd=$out/"odd name's \"folder\" ü"

expected=(
    tagged/tone.mp3 tagged/tone.flac tagged/tone.ogg tagged/tone.opus tagged/tone.m4a tagged/tone.wav
    tagged/artist-only.mp3 "tagged/Name Artist - Name Song.mp3"
    "untagged/Artist - Song.mp3" "untagged/-Song.mp3" "untagged/ - Song.mp3"
    "untagged/Band - Live - Set.mp3" untagged/a.b.mp3 untagged/NoSeparator.mp3
    bad/empty.mp3 bad/truncated.mp3 bad/random.mp3 bad/random.flac bad/notaudio.txt
    scan/short.wav scan/short.mp3 scan/short.ogg scan/garbage.mp3
)

up_to_date() {
    [[ -f "$stamp" && "$(cat "$stamp")" == "$script_sum" ]] || return 1
    local f
    for f in "${expected[@]}"; do
        [[ -e "$out/$f" ]] || return 1
    done
    [[ -f "$odd/Ünïcödé Artist - Ça va.mp3" && -f "$odd/it's \"quoted\".ogg" ]]
}
if up_to_date; then
    exit 0
fi

mkdir -p "$out"/{tagged,untagged,bad,scan} "$odd"
work=$(mktemp -d "${TMPDIR:-/tmp}/ondaro-fixtures.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Bit-exact flags keep encoder version strings and random ids out of the files.
ff=(ffmpeg -nostdin -hide_banner -loglevel error -y -threads 1)
bitexact=(-fflags +bitexact -flags:a +bitexact -map_metadata -1)

tone() { # tone <seconds> <frequency>
    echo "sine=frequency=$2:sample_rate=44100:duration=$1"
}

# Writes to a temporary name first, then moves into place, so a reader never sees half a file.
put() { # put <final path> <ffmpeg output options...>
    local dest=$1
    shift
    local tmp
    tmp=$work/part-$(basename "$dest" | tr -c 'A-Za-z0-9.\n' '_')
    "${ff[@]}" "$@" "$tmp"
    mv -f "$tmp" "$dest"
}

meta() { # meta <artist> <title> <album> <genre> <comment> <year>
    printf '%s\n' -metadata "artist=$1" -metadata "title=$2" -metadata "album=$3" \
        -metadata "genre=$4" -metadata "comment=$5" -metadata "date=$6"
}
mapfile -t flacmeta < <(meta "Flac Artist" "Flac Title" "Flac Album" "Jazz" "flac comment" 2002)
mapfile -t oggmeta < <(meta "Ogg Artist" "Ogg Title" "Ogg Album" "Pop" "ogg comment" 2003)
mapfile -t opusmeta < <(meta "Opus Artist" "Opus Title" "Opus Album" "Blues" "opus comment" 2004)
mapfile -t m4ameta < <(meta "M4a Artist" "M4a Title" "M4a Album" "Soul" "m4a comment" 2005)
mapfile -t wavmeta < <(meta "Wav Artist" "Wav Title" "Wav Album" "Folk" "wav comment" 2006)

# ffmpeg writes an mp3 "comment" as a TXXX frame, which tag readers do not show as the comment, so
# the ID3v2.3 tag of the mp3 fixtures is built here byte by byte (Latin-1 texts, COMM for the comment).
byte() {
    printf "\\$(printf '%03o' "$1")"
}
be32() {
    byte $((($1 >> 24) & 255)); byte $((($1 >> 16) & 255)); byte $((($1 >> 8) & 255)); byte $(($1 & 255))
}
id3frame() { # id3frame <frame id> <body file>
    local size
    size=$(stat -c %s "$2")
    printf '%s' "$1"
    be32 "$size"
    printf '\000\000'
    cat "$2"
}
# id3tag <out> <audio> [ID=text ...]; COMM=text becomes a comment frame, the rest text frames.
id3tag() {
    local dest=$1 audio=$2 frames=$work/frames.bin body=$work/body.bin pair id text size
    shift 2
    : >"$frames"
    for pair in "$@"; do
        id=${pair%%=*}
        text=${pair#*=}
        if [[ $id == COMM ]]; then
            printf '\000eng\000%s' "$text" >"$body"
        else
            printf '\000%s' "$text" >"$body"
        fi
        id3frame "$id" "$body" >>"$frames"
    done
    size=$(stat -c %s "$frames")
    {
        printf 'ID3\003\000\000'
        byte $(((size >> 21) & 127)); byte $(((size >> 14) & 127)); byte $(((size >> 7) & 127)); byte $((size & 127))
        cat "$frames" "$audio"
    } >"$work/tagged.part"
    mv -f "$work/tagged.part" "$dest"
}

src=(-f lavfi -i "$(tone 2.5 440)")
short=(-f lavfi -i "$(tone 1 660)")

# Tagged
put "$work/tone-audio.mp3" "${src[@]}" "${bitexact[@]}" -c:a libmp3lame -b:a 64k -id3v2_version 0 \
    -write_id3v1 0 -f mp3
id3tag "$out/tagged/tone.mp3" "$work/tone-audio.mp3" "TPE1=Mp3 Artist" "TIT2=Mp3 Title" "TALB=Mp3 Album" \
    "TCON=Rock" "COMM=mp3 comment" "TYER=2001"
put "$out/tagged/tone.flac" "${src[@]}" "${bitexact[@]}" "${flacmeta[@]}" -c:a flac -f flac
put "$out/tagged/tone.ogg" "${src[@]}" "${bitexact[@]}" "${oggmeta[@]}" -c:a libvorbis -q:a 0 -f ogg
put "$out/tagged/tone.opus" "${src[@]}" "${bitexact[@]}" "${opusmeta[@]}" -c:a libopus -b:a 32k -f opus
put "$out/tagged/tone.m4a" "${src[@]}" "${bitexact[@]}" "${m4ameta[@]}" -c:a aac -b:a 64k -f ipod
put "$out/tagged/tone.wav" "${src[@]}" "${bitexact[@]}" "${wavmeta[@]}" -c:a pcm_s16le -ac 1 -f wav
put "$work/short-audio.mp3" "${short[@]}" "${bitexact[@]}" -c:a libmp3lame -b:a 32k -id3v2_version 0 \
    -write_id3v1 0 -f mp3
id3tag "$out/tagged/artist-only.mp3" "$work/short-audio.mp3" "TPE1=Tag Artist"
cp -f "$out/tagged/artist-only.mp3" "$work/named.mp3"
mv -f "$work/named.mp3" "$out/tagged/Name Artist - Name Song.mp3"

# Untagged: no ID3v2, no ID3v1, so the title must come from the file name.
put "$work/plain.mp3" "${short[@]}" "${bitexact[@]}" -c:a libmp3lame -b:a 32k -id3v2_version 0 \
    -write_id3v1 0 -f mp3
for name in "Artist - Song.mp3" "-Song.mp3" " - Song.mp3" "Band - Live - Set.mp3" "a.b.mp3" \
    "NoSeparator.mp3"; do
    cp -f "$work/plain.mp3" "$out/untagged/$name"
done

# Bad input
: >"$work/empty.mp3"
mv -f "$work/empty.mp3" "$out/bad/empty.mp3"
# Cut inside its first frame, and without the frame-count header that would still announce the full
# length: no frame can be confirmed, so no length is found.
put "$work/noxing.mp3" "${short[@]}" "${bitexact[@]}" -c:a libmp3lame -b:a 128k -id3v2_version 0 \
    -write_id3v1 0 -write_xing 0 -f mp3
head -c 300 "$work/noxing.mp3" >"$work/truncated.mp3"
mv -f "$work/truncated.mp3" "$out/bad/truncated.mp3"
# sox -R runs with a fixed seed, so the noise bytes are the same on every run.
sox -R -n -t raw -e unsigned-integer -b 8 -c 1 -r 8000 "$work/noise.raw" synth 1.024 whitenoise
head -c 4096 "$work/noise.raw" >"$work/random.mp3"
tail -c 4096 "$work/noise.raw" >"$work/random.flac"
mv -f "$work/random.mp3" "$out/bad/random.mp3"
mv -f "$work/random.flac" "$out/bad/random.flac"
printf 'This is not audio.\nJust two lines of text.\n' >"$work/notaudio.txt"
mv -f "$work/notaudio.txt" "$out/bad/notaudio.txt"

# Odd folder name
cp -f "$work/plain.mp3" "$odd/Ünïcödé Artist - Ça va.mp3"
put "$work/quoted.ogg" "${short[@]}" "${bitexact[@]}" -c:a libvorbis -q:a 0 -f ogg
mv -f "$work/quoted.ogg" "$odd/it's \"quoted\".ogg"

# Duration scanner input: 1.5 s each
scan=(-f lavfi -i "$(tone 1.5 550)")
put "$out/scan/short.wav" "${scan[@]}" "${bitexact[@]}" -c:a pcm_s16le -ac 1 -f wav
put "$out/scan/short.mp3" "${scan[@]}" "${bitexact[@]}" -c:a libmp3lame -b:a 32k -id3v2_version 0 \
    -write_id3v1 0 -f mp3
put "$out/scan/short.ogg" "${scan[@]}" "${bitexact[@]}" -c:a libvorbis -q:a 0 -f ogg
printf 'garbage, not an mp3 stream\n%.0s' {1..40} >"$work/garbage.mp3"
mv -f "$work/garbage.mp3" "$out/scan/garbage.mp3"

echo "$script_sum" >"$stamp"
