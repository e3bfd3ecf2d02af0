#pragma once

#include <QString>
#include <QStringList>

// ondaro-studio [--play] [FILE|URL|M3U]...: what to load at start and whether to start playing at
// once (unattended automation). Parsed without a window so that it can be tested on its own.
class StudioCommandLine
{
public:
    struct Options {
        bool play = false;
        bool showHelp = false;
        bool showVersion = false;
        QStringList items; // files, stream URLs and playlists, in the order given
        QString error;     // a usage error; empty when the arguments are fine
    };

    // arguments as QCoreApplication::arguments() gives them, the program name first.
    static Options parse(const QStringList& arguments);
    static QString helpText();
};
