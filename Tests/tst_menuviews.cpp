#include "ElidedLabel.h"
#include "MenuViews.h"

#include <QAction>
#include <QTest>

using namespace Veltrane;

namespace {

ElidedLabel *label(const QWidget &row, const char *name)
{
    return row.findChild<ElidedLabel *>(QLatin1StringView(name));
}

QStringList texts(const QList<QAction *> &actions)
{
    QStringList result;
    for (const QAction *action : actions)
        result.append(action->text());
    return result;
}

} // namespace

class TestMenuViews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The dot's colour and the state text, in both forms; a disabled row keeps its colours.
    void headerShowsTheState()
    {
        MenuHeaderView header;
        header.setPalette(QPalette(Qt::white));
        header.setEnabled(false);
        QCOMPARE(header.grab().toImage().pixelColor(58, 35), QColor(Qt::white)); // no dot before a state

        const HeaderPresentation amber = headerPresentation(TrayState::LoggedOut);
        header.setPresentation(amber);
        const QColor dot(amber.color.red, amber.color.green, amber.color.blue);
        QCOMPARE(header.grab().toImage().pixelColor(58, 35), dot);
        QCOMPARE(label(header, "statusLabel")->text(), u"Connected, needs auth"_qs);
        QCOMPARE(label(header, "titleLabel")->textColor(), header.palette().color(QPalette::Active, QPalette::WindowText));
        QCOMPARE(texts(header.textForm()), (QStringList{u"Veltrane"_qs, u"Connected, needs auth"_qs}));
        QCOMPARE(header.textForm()[1]->icon().pixmap(QSize(16, 16), 1.0).toImage().pixelColor(8, 8), dot);
    }

    void deviceShowsItsTexts_data()
    {
        QTest::addColumn<QString>("fqdn");
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("owner");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("detail");
        QTest::newRow("no name") << QString() << u"100.64.0.7"_qs << QString() << u"This device"_qs << u"100.64.0.7"_qs;
        QTest::newRow("everything") << u"lab.ts.net"_qs << u"100.64.0.7"_qs << u"mia@example.com"_qs << u"lab.ts.net"_qs
                                    << u"100.64.0.7 \u00b7 mia@example.com"_qs;
        QTest::newRow("an owner, no address") << u"lab.ts.net"_qs << QString() << u"tag:ci"_qs << u"lab.ts.net"_qs
                                              << u" \u00b7 tag:ci"_qs;
        QTest::newRow("nothing") << QString() << QString() << QString() << u"This device"_qs << QString();
        QTest::newRow("marks a panel reads") << u"build_box & co"_qs << QString() << QString() << u"build_box & co"_qs
                                             << QString();
    }

    void deviceShowsItsTexts()
    {
        QFETCH(QString, fqdn);
        QFETCH(QString, ip);
        QFETCH(QString, owner);
        QFETCH(QString, name);
        QFETCH(QString, detail);
        MenuDeviceView device;
        device.setDevice(fqdn, ip, owner);
        QCOMPARE(label(device, "nameLabel")->text(), name);
        QCOMPARE(label(device, "detailLabel")->text(), detail);
        QCOMPARE(label(device, "nameLabel")->toolTip(), fqdn); // the name itself, even when empty
        QCOMPARE(label(device, "detailLabel")->toolTip(), detail);
        // In the text form "&" is doubled, or Qt would read it as a shortcut's mark.
        QCOMPARE(texts(device.textForm()), (QStringList{QString(name).replace(u'&', u"&&"_qs), detail}));
    }

    // A long DNS name keeps its beginning and its end; daemon text is never read as markup.
    void showsNamesAsTyped()
    {
        MenuDeviceView device;
        device.setDevice(u"a-very-long-host-name-for-the-build-farm.engineering.example-company.ts.net"_qs, {}, {});
        const QString shown = label(device, "nameLabel")->displayedText();
        QVERIFY2(shown.startsWith(u"a-very"_qs) && shown.contains(u'\u2026') && shown.endsWith(u"ts.net"_qs),
                 qPrintable(shown));
        QCOMPARE(texts(device.textForm()).first(), shown); // a menu drawn from the text form shortens it alike

        device.setDevice(u"<b>lab</b> & <i>co</i>"_qs, {}, {});
        QCOMPARE(label(device, "nameLabel")->displayedText(), u"<b>lab</b> & <i>co</i>"_qs);
    }
};

QTEST_MAIN(TestMenuViews)
#include "tst_menuviews.moc"
