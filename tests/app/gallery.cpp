#include "tests/app/Scenes.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <cstdio>

using namespace vellumline;

/// Draws every state of every page into a folder of pictures, to be looked at. Run it with QT_SCALE_FACTOR
/// set for other scales.
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Draws every state of every page into a folder."));
    parser.addHelpOption();
    const QCommandLineOption dark(QStringLiteral("dark"), QStringLiteral("The dark colours."));
    const QCommandLineOption highContrast(QStringLiteral("high-contrast"),
                                          QStringLiteral("The strong colours."));
    const QCommandLineOption rightToLeft(QStringLiteral("right-to-left"),
                                         QStringLiteral("The layout mirrored."));
    const QCommandLineOption text(QStringLiteral("text"), QStringLiteral("The text size in percent."),
                                  QStringLiteral("percent"), QStringLiteral("100"));
    parser.addOptions({dark, highContrast, rightToLeft, text});
    parser.addPositionalArgument(QStringLiteral("folder"), QStringLiteral("Where the pictures go."));
    parser.process(application);
    if (parser.positionalArguments().size() != 1)
        parser.showHelp(1);

    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication::setPalette(
        Style::palette(parser.isSet(dark) ? Style::ColorScheme::dark : Style::ColorScheme::light,
                       parser.isSet(highContrast) ? Style::Contrast::high : Style::Contrast::normal));
    if (parser.isSet(rightToLeft))
        QApplication::setLayoutDirection(Qt::RightToLeft);
    QFont font = QApplication::font();
    font.setPointSizeF(font.pointSizeF() * parser.value(text).toInt() / 100);
    QApplication::setFont(font);

    const QDir folder(parser.positionalArguments().constFirst());
    folder.mkpath(QStringLiteral("."));
    for (const test::Scene& scene : test::allScenes()) {
        const auto stage = scene.make();
        const QString path = folder.filePath(scene.fileName() + QStringLiteral(".png"));
        if (!scene.open(*stage)->grab().save(path)) {
            std::fprintf(stderr, "%s cannot be written\n", qUtf8Printable(path));
            return 1;
        }
    }
    return 0;
}
