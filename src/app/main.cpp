#include <QApplication>
#include <cstdio>

int main(int argc, char *argv[])
{
    std::fputs("Vexa: starting\n", stderr);
    QApplication app(argc, argv);
    return 0;
}
