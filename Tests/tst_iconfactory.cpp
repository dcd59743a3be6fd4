#include "ApplicationBundle.h"
#include "IconFactory.h"

#include <QDir>
#include <QFile>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <vector>

using namespace Veltrane;

namespace {

QColor toQColor(const SrgbColor &color) { return QColor(color.red, color.green, color.blue); }

QImage render(const QIcon &icon, qreal scale)
{
    const QPixmap pixmap = icon.pixmap(QSize(18, 18), scale);
    return pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
}

QImage solidImage(QSize size, const QColor &color)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

bool writeImage(const QString &path, const QImage &image) { return image.save(path, "PNG"); }

bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The logo painted alone into a transparent square of `side` pixels.
QImage paintLogo(const Logo &logo, int side, QSizeF target = {18, 18})
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.scale(side / 18.0, side / 18.0);
    logo.paint(painter, QRectF(QPointF(), target));
    painter.end();
    return image.convertToFormat(QImage::Format_ARGB32);
}

} // namespace

class TestIconFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { IconFactory::clearStatusIconCache(); }

    void cachesOneIconPerState()
    {
        QCOMPARE(IconFactory::cachedStatusIconCount(), 0);
        const QIcon first = IconFactory::statusIcon(TrayState::Connected);
        const QIcon second = IconFactory::statusIcon(TrayState::Connected);
        QCOMPARE(second.cacheKey(), first.cacheKey());
        const QIcon error = IconFactory::statusIcon(TrayState::Error);
        QVERIFY(error.cacheKey() != first.cacheKey());
        QCOMPARE(IconFactory::cachedStatusIconCount(), 2);
        for (const TrayState state : allTrayStates)
            IconFactory::statusIcon(state);
        QCOMPARE(IconFactory::cachedStatusIconCount(), 7);
    }

    // The dot is 7.3125 points wide, 0.5 point in from the right and bottom edges, filled with the
    // state's colour and ringed by a dark line 0.8 point wide; at 1x and 2x alike.
    void drawsTheDotInPlace_data()
    {
        QTest::addColumn<TrayState>("state");
        for (const TrayState state : allTrayStates)
            QTest::newRow(qPrintable(IconFactory::iconKey(state))) << state;
    }

    void drawsTheDotInPlace()
    {
        QFETCH(TrayState, state);
        const QColor fill = toQColor(dotColor(state));
        const QIcon icon = IconFactory::statusIcon(state);

        const QImage normal = render(icon, 1);
        QCOMPARE(normal.size(), QSize(18, 18));
        QCOMPARE(normal.pixelColor(13, 13), fill); // the centre, 13.84 points in
        QVERIFY(normal.pixelColor(8, 13) != fill);  // left of the dot

        const QImage doubled = render(icon, 2);
        QCOMPARE(doubled.size(), QSize(36, 36));
        for (const QPoint inside : {QPoint(27, 27), QPoint(22, 27), QPoint(27, 22), QPoint(33, 27), QPoint(27, 33)})
            QCOMPARE(doubled.pixelColor(inside), fill);
        // The ring crosses the dot's left edge at 20.4 pixels and its top edge likewise.
        for (const QPoint ring : {QPoint(20, 27), QPoint(27, 20)}) {
            const QColor seen = doubled.pixelColor(ring);
            QVERIFY2(seen.lightness() < fill.lightness(), qPrintable(seen.name()));
        }
        QVERIFY(doubled.pixelColor(17, 27) != fill);
        QVERIFY(doubled.pixelColor(35, 17) != fill);
    }

    // A tray host picks among the icon's sizes; each is drawn at that size, not scaled.
    void offersTrayHostSizes()
    {
        const QIcon icon = IconFactory::statusIcon(TrayState::Connected);
        const QList<QSize> sizes = icon.availableSizes();
        QVERIFY(sizes.contains(QSize(22, 22)));
        QVERIFY(sizes.contains(QSize(64, 64)));
        for (const QSize size : sizes) {
            QVERIFY(size.width() <= 64);
            const QImage image = icon.pixmap(size, 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
            QCOMPARE(image.size(), size);
            const int centre = int(size.width() * (10.1875 + 7.3125 / 2) / 18);
            QCOMPARE(image.pixelColor(centre, centre), toQColor(dotColor(TrayState::Connected)));
        }
    }

    void listsCandidatesInOrder()
    {
        QCOMPARE(IconFactory::logoCandidates(u"/opt/vt/share/veltrane-tray"_qs, u"/opt/vt/bin"_qs, u"/src/tray"_qs),
                 (QStringList{u"/opt/vt/share/veltrane-tray/veltrane-logo.png"_qs, u"/opt/vt/bin/veltrane-logo.png"_qs,
                              u"/src/tray/Resources/veltrane-logo.png"_qs}));
        QCOMPARE(IconFactory::logoCandidates(std::nullopt, u"/opt/vt/bin"_qs, u"/src/tray"_qs),
                 (QStringList{u"/opt/vt/bin/veltrane-logo.png"_qs, u"/src/tray/Resources/veltrane-logo.png"_qs}));
    }

    void findsTheSourceTree()
    {
        const QDir root(IconFactory::sourceRoot());
        QVERIFY(root.exists(u"Sources/VeltraneTray/IconFactory.cpp"_qs));
        QVERIFY(root.exists(u"Resources/veltrane-logo.png"_qs));
    }

    void installedAppHasAResourceDirectory()
    {
        QTemporaryDir prefix;
        QVERIFY(QDir(prefix.path()).mkpath(u"bin"_qs));
        const QString bin = prefix.filePath(u"bin"_qs);
        QCOMPARE(ApplicationBundle::resourceDirectory(bin), std::nullopt);
        QVERIFY(QDir(prefix.path()).mkpath(u"share/veltrane-tray"_qs));
        QCOMPARE(ApplicationBundle::resourceDirectory(bin), std::optional(prefix.filePath(u"share/veltrane-tray"_qs)));
        QCOMPARE(ApplicationBundle::bundleDirectory(bin + u"/"_qs), bin);
    }

    void loadsTheFirstCandidateThatDecodes()
    {
        QTemporaryDir resources, bundle, tree;
        QVERIFY(QDir(tree.path()).mkpath(u"Resources"_qs));
        const QStringList candidates = IconFactory::logoCandidates(resources.path(), bundle.path(), tree.path());
        QVERIFY(writeImage(candidates[1], solidImage({30, 30}, Qt::blue)));
        QVERIFY(writeImage(candidates[2], solidImage({30, 30}, Qt::green)));

        // The resource directory wins over the app's own location.
        QVERIFY(writeImage(candidates[0], solidImage({40, 20}, Qt::red)));
        Logo logo = IconFactory::loadLogo(candidates);
        QVERIFY(!logo.isFallbackGlyph());
        QCOMPARE(logo.size(), QSizeF(40, 20));
        QCOMPARE(paintLogo(logo, 18).pixelColor(9, 9), QColor(Qt::red));

        // A file that is not an image counts as missing.
        QVERIFY(writeBytes(candidates[0], "not a PNG at all"));
        logo = IconFactory::loadLogo(candidates);
        QCOMPARE(paintLogo(logo, 18).pixelColor(9, 9), QColor(Qt::blue));

        QVERIFY(QFile::remove(candidates[1]));
        QCOMPARE(paintLogo(IconFactory::loadLogo(candidates), 18).pixelColor(9, 9), QColor(Qt::green));

        QVERIFY(QFile::remove(candidates[2]));
        QVERIFY(IconFactory::loadLogo(candidates).isFallbackGlyph());
    }

    // The status icon stretches the logo to its square; the aspect ratio is not kept.
    void stretchesALogoThatIsNotSquare()
    {
        const QImage painted = paintLogo(Logo::fromImage(solidImage({60, 20}, Qt::red)), 36);
        for (const QPoint corner : {QPoint(0, 0), QPoint(35, 0), QPoint(0, 35), QPoint(35, 35)})
            QCOMPARE(painted.pixelColor(corner), QColor(Qt::red));
    }

    // Without artwork: a dark rounded square inset by a point, and a white "V" centred in it.
    void drawsTheFallbackGlyph_data()
    {
        QTest::addColumn<int>("side");
        QTest::newRow("1x") << 18;
        QTest::newRow("2x") << 36;
    }

    void drawsTheFallbackGlyph()
    {
        QFETCH(int, side);
        const Logo glyph = Logo::fallbackGlyph();
        QVERIFY(glyph.isFallbackGlyph());
        QCOMPARE(glyph.size(), QSizeF(18, 18));
        const QImage image = paintLogo(glyph, side);
        const int point = side / 18;
        QCOMPARE(image.pixelColor(0, side / 2).alpha(), 0);              // the 1-point inset
        QCOMPARE(image.pixelColor(0, 0).alpha(), 0);                     // a rounded corner
        QCOMPARE(image.pixelColor(2 * point, side / 2), QColor(30, 41, 59)); // the square

        // The letter: white pixels, balanced about the middle column.
        int left = 0, right = 0;
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                if (image.pixelColor(x, y).lightness() > 200)
                    (x < side / 2 ? left : right) += 1;
            }
        }
        QVERIFY2(left > 2 * point * point && right > 2 * point * point, qPrintable(u"%1 %2"_qs.arg(left).arg(right)));
        QVERIFY(qAbs(left - right) <= (left + right) / 4);
    }

    void shipsDecodableArtwork()
    {
        const Logo logo = IconFactory::loadLogo({IconFactory::sourceRoot() + u"/Resources/veltrane-logo.png"_qs});
        QVERIFY(!logo.isFallbackGlyph());
        QCOMPARE(logo.size().width(), logo.size().height());
    }

    // The logo may be first touched from several threads at once; it is made exactly once.
    void loadsTheLogoOnceAcrossThreads()
    {
        std::vector<const Logo *> seen(8, nullptr);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < seen.size(); ++i)
            threads.emplace_back([&seen, i] { seen[i] = &IconFactory::logo(); });
        for (std::thread &thread : threads)
            thread.join();
        for (const Logo *logo : seen)
            QCOMPARE(logo, &IconFactory::logo());
    }

    void dotIconIsRoundAndColoured()
    {
        const SrgbColor amber{234, 179, 8};
        const QImage image = IconFactory::dotIcon(amber).pixmap(QSize(16, 16), 1.0).toImage().convertToFormat(QImage::Format_ARGB32);
        QCOMPARE(image.pixelColor(8, 8), toQColor(amber));
        QCOMPARE(image.pixelColor(0, 0).alpha(), 0);
        QCOMPARE(image.pixelColor(15, 8).alpha(), 0);
    }
};

QTEST_MAIN(TestIconFactory)
#include "tst_iconfactory.moc"
