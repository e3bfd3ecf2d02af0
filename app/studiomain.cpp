// ondaro-studio: the on-air window. Same identity as the Library Manager, so both share the
// library database and the playout settings.

#include "musiclibrary.h"
#include "studiocommandline.h"
#include "studiowindow.h"

#include <QApplication>
#include <QIcon>

#include <cstdio>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/appicon.png")));

    const StudioCommandLine::Options options = StudioCommandLine::parse(QCoreApplication::arguments());
    if (!options.error.isEmpty()) {
        std::fprintf(stderr, "ondaro-studio: %s\n\n%s", qPrintable(options.error),
                     qPrintable(StudioCommandLine::helpText()));
        return 2;
    }
    if (options.showHelp) {
        std::fputs(qPrintable(StudioCommandLine::helpText()), stdout);
        return 0;
    }
    if (options.showVersion) {
        std::printf("ondaro-studio %s\n", qPrintable(QCoreApplication::applicationVersion()));
        return 0;
    }

    // A database that cannot be opened does not stop the studio: it plays what it is given and
    // says in its log that the library and the as-run log are off.
    MusicLibrary::initialize();

    int result = 0;
    {
        StudioWindow window;
        window.show();
        window.start(options);
        result = QApplication::exec();
    } // the window goes before the application object
    return result;
}
