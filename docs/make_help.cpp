// Writes the help document Kestro.pdf from its Markdown source at build
// time, so the guide always matches the program it ships with.
#include <QFile>
#include <QGuiApplication>
#include <QPageLayout>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextDocument>
#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: kestro-helpdoc SOURCE.md OUTPUT.pdf\n");
        return 2;
    }
    QFile source(QString::fromLocal8Bit(argv[1]));
    if (!source.open(QIODevice::ReadOnly | QIODevice::Text)) {
        std::fprintf(stderr, "kestro-helpdoc: cannot read %s\n", argv[1]);
        return 1;
    }
    QTextDocument document;
    document.setDefaultFont(QFont("Arial", 10));
    document.setMarkdown(QString::fromUtf8(source.readAll()));

    QPdfWriter pdf(QString::fromLocal8Bit(argv[2]));
    pdf.setTitle("Kestro user guide");
    pdf.setCreator("Kestro");
    pdf.setPageSize(QPageSize(QPageSize::A4));
    pdf.setPageMargins(QMarginsF(20, 20, 20, 20), QPageLayout::Millimeter);
    document.print(&pdf);
    return 0;
}
