// quillstow-screenshot FILE [X Y WIDTH HEIGHT]: saves the screen of the display, or the part of
// it given, as a PNG.

#include <QApplication>
#include <QPixmap>
#include <QScreen>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 2 && argc != 6) {
        std::fprintf(stderr, "usage: quillstow-screenshot FILE.png [X Y WIDTH HEIGHT]\n");
        return 64;
    }
    QApplication app(argc, argv);
    QScreen* screen = QGuiApplication::primaryScreen();
    const bool part = argc == 6;
    const QPixmap shot = !screen ? QPixmap()
                         : part  ? screen->grabWindow(0, std::atoi(argv[2]), std::atoi(argv[3]),
                                                      std::atoi(argv[4]), std::atoi(argv[5]))
                                 : screen->grabWindow(0);
    if (shot.isNull() || !shot.save(argv[1], "PNG")) {
        std::fprintf(stderr, "quillstow-screenshot: could not grab the screen into %s\n", argv[1]);
        return 1;
    }
    return 0;
}
