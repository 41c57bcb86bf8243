// quillstow-screenshot FILE: saves the whole screen of the display as a PNG.

#include <QApplication>
#include <QPixmap>
#include <QScreen>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: quillstow-screenshot FILE.png\n");
        return 64;
    }
    QApplication app(argc, argv);
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen || !screen->grabWindow(0).save(argv[1], "PNG")) {
        std::fprintf(stderr, "quillstow-screenshot: could not grab the screen into %s\n", argv[1]);
        return 1;
    }
    return 0;
}
