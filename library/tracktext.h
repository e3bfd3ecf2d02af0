#pragma once

#include "track.h"

#include <QString>

// The texts a Track is shown and named with, and the rows built from a bare text, in one place for
// the playlist, the playout, the studio, the scheduler and the headless runner.

// "Artist - Title" when both are known, else the title, else the file path or stream URL.
QString trackDisplayText(const Track& track);

// A command row as the running order shows it: ">> STOP <<" (the word upper-cased).
QString commandRowText(const Track& track);

// What a playlist row reads as: commandRowText for a command row, trackDisplayText otherwise.
QString playlistRowText(const Track& track);

// The name of a file without its folder and its last extension ("/a/B - C.mp3" gives "B - C").
// Both '/' and '\\' end a folder on every platform: paths may come from another system. A name that
// is only an extension (".hidden") is kept whole.
QString fileBaseName(const QString& path);

struct ArtistTitle {
    QString artist; // empty when the text has no separator
    QString title;
};

// Splits "Artist - Title" at its first " - ": both halves trimmed, later separators stay in the
// title. A text without a separator, or starting with one, is all title and returned unchanged.
ArtistTitle splitArtistTitle(const QString& text);

// The artist shown for a stream that has no name of its own.
QString onlineStreamArtist(); // "Online stream"

// A playlist row for an online stream: artist "Online stream", title and filePath the trimmed
// address, no time limit.
Track trackFromStreamUrl(const QString& text);

// A playlist row for a local file, named from its file name ("Artist - Title.ext"); nothing is read
// from the file, so its duration stays unknown.
Track trackFromFileName(const QString& path);

// A command row (STOP, PAUSE, ...) with the word as given; the engine compares it in lower case.
Track commandTrack(const QString& word);
