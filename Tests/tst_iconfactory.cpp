#include "ApplicationBundle.h"
#include "IconFactory.h"

#include <QDir>
#include <QFile>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

QImage pixels(const QIcon &icon, QSize size, qreal scale)
{
    return icon.pixmap(size, scale).toImage().convertToFormat(QImage::Format_ARGB32);
}

bool writeImage(const QString &path, QSize size, const QColor &color)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(color);
    return image.save(path, "PNG");
}

// The logo painted alone into a transparent square of `side` pixels.
QImage paintLogo(const Logo &logo, int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.scale(side / 18.0, side / 18.0);
    logo.paint(painter, QRectF(0, 0, 18, 18));
    painter.end();
    return image.convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class TestIconFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The dot is 7.3125 points wide, 0.5 point in from the right and bottom edges, filled with the
    // state's colour (written out here, not taken from the table the app draws with) and ringed by
    // a dark line 0.8 point wide; sharp at 2x and at every tray-host size.
    void drawsTheDotInPlace_data()
    {
        QTest::addColumn<TrayState>("state");
        QTest::addColumn<QColor>("fill");
        QTest::newRow("daemon unreachable: red") << TrayState::DaemonUnreachable << QColor(239, 68, 68);
        QTest::newRow("stopped: slate") << TrayState::Stopped << QColor(100, 116, 139);
        QTest::newRow("logged out: grey") << TrayState::LoggedOut << QColor(148, 163, 184);
        QTest::newRow("connecting: amber") << TrayState::Connecting << QColor(234, 179, 8);
        QTest::newRow("no network: blue") << TrayState::NoNetwork << QColor(59, 130, 246);
        QTest::newRow("connected: green") << TrayState::Connected << QColor(34, 197, 94);
        QTest::newRow("error: orange") << TrayState::Error << QColor(249, 115, 22);
    }

    void drawsTheDotInPlace()
    {
        QFETCH(TrayState, state);
        QFETCH(QColor, fill);
        const QIcon icon = IconFactory::statusIcon(state);
        const QImage doubled = pixels(icon, {18, 18}, 2);
        QCOMPARE(doubled.size(), QSize(36, 36));
        for (const QPoint inside : {QPoint(27, 27), QPoint(22, 27), QPoint(27, 22), QPoint(33, 27), QPoint(27, 33)})
            QCOMPARE(doubled.pixelColor(inside), fill);
        for (const QPoint ring : {QPoint(20, 27), QPoint(27, 20)})
            QVERIFY(doubled.pixelColor(ring).lightness() < fill.lightness());
        QVERIFY(doubled.pixelColor(17, 27) != fill);
        for (const QSize size : icon.availableSizes()) {
            const int centre = int(size.width() * (10.1875 + 7.3125 / 2) / 18);
            QCOMPARE(pixels(icon, size, 1).pixelColor(centre, centre), fill);
        }
    }

    void loadsTheFirstCandidateThatDecodes()
    {
        QTemporaryDir prefix;
        QVERIFY(QDir(prefix.path()).mkpath(u"bin"_s) && QDir(prefix.path()).mkpath(u"share/veltrane-tray"_s));
        const QString bin = prefix.filePath(u"bin"_s);
        QTemporaryDir tree;
        QVERIFY(QDir(tree.path()).mkpath(u"Resources"_s));
        const QStringList candidates = IconFactory::logoCandidates(
            ApplicationBundle::resourceDirectory(bin), ApplicationBundle::bundleDirectory(bin), tree.path());
        QCOMPARE(candidates, (QStringList{prefix.filePath(u"share/veltrane-tray/veltrane-logo.png"_s),
                                          prefix.filePath(u"bin/veltrane-logo.png"_s),
                                          tree.filePath(u"Resources/veltrane-logo.png"_s)}));
        QVERIFY(writeImage(candidates[1], {30, 30}, Qt::blue));
        QVERIFY(writeImage(candidates[2], {30, 30}, Qt::green));

        // The resource directory wins; a logo that is not square is stretched to the square.
        QVERIFY(writeImage(candidates[0], {40, 20}, Qt::red));
        const QImage red = paintLogo(IconFactory::loadLogo(candidates), 18);
        QCOMPARE(red.pixelColor(0, 0), QColor(Qt::red));
        QCOMPARE(red.pixelColor(17, 17), QColor(Qt::red));

        // A file that is not an image counts as missing.
        QFile broken(candidates[0]);
        QVERIFY(broken.open(QIODevice::WriteOnly | QIODevice::Truncate) && broken.write("not a PNG") > 0);
        broken.close();
        QCOMPARE(paintLogo(IconFactory::loadLogo(candidates), 18).pixelColor(9, 9), QColor(Qt::blue));
        QVERIFY(QFile::remove(candidates[1]) && QFile::remove(candidates[2]));
        QVERIFY(IconFactory::loadLogo(candidates).isFallbackGlyph());

        QVERIFY(QFile::remove(candidates[0]) && QDir(prefix.path()).rmdir(u"share/veltrane-tray"_s));
        QCOMPARE(ApplicationBundle::resourceDirectory(bin), std::nullopt);
        const QString shipped = IconFactory::sourceRoot() + u"/Resources/veltrane-logo.png"_s;
        QVERIFY(!IconFactory::loadLogo({shipped}).isFallbackGlyph());
    }
};

QTEST_MAIN(TestIconFactory)
#include "tst_iconfactory.moc"
