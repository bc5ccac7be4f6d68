#include <QGuiApplication>
#include <QWindow>

#include <cstdio>
#include <cstring>

int main(int argc, char *argv[])
{
    // There is no command-line mode: a headless start is refused before any
    // window system is touched.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--headless") == 0) {
            std::fputs("headless commands are not available in this build\n", stderr);
            return 2;
        }
    }

    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("Velum"));
    QGuiApplication::setOrganizationName(QStringLiteral("Velum"));

    QWindow window;
    window.setTitle(QStringLiteral("Velum"));
    window.resize(1100, 720);
    window.show();
    return QGuiApplication::exec();
}
