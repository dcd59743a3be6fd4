#include "Appearance.h"
#include "ElidedLabel.h"
#include "MenuViews.h"

#include <QAction>
#include <QHelpEvent>
#include <QTest>
#include <QTextDocument>
#include <QToolTip>

using namespace Veltrane;

Q_DECLARE_METATYPE(MenuDeviceText)

namespace {

ElidedLabel *label(const QWidget &row, const char *name)
{
    auto *found = row.findChild<ElidedLabel *>(QLatin1StringView(name));
    if (!found)
        qFatal("no label %s", name);
    return found;
}

QRect frameOf(const QWidget &row, const char *name) { return row.findChild<QWidget *>(QLatin1StringView(name))->geometry(); }

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
    // Frames are the rows' own, measured from the top-left corner as Qt does.
    void headerLaysOutItsParts()
    {
        MenuHeaderView header;
        QCOMPARE(header.size(), QSize(280, 52));
        QCOMPARE(header.minimumSize(), header.maximumSize());
        QCOMPARE(frameOf(header, "logoView"), QRect(14, 12, 28, 28));
        QCOMPARE(frameOf(header, "titleLabel"), QRect(52, 8, 210, 17));
        QCOMPARE(frameOf(header, "dotView"), QRect(54, 31, 8, 8));
        QCOMPARE(frameOf(header, "statusLabel"), QRect(68, 28, 200, 15));
        QCOMPARE(frameOf(header, "dotView").center(), QPoint(57, 34)); // centre 58, 35 in points

        const ElidedLabel *title = label(header, "titleLabel");
        QCOMPARE(title->text(), u"Veltrane"_qs);
        QCOMPARE(title->font().pixelSize(), 13);
        QCOMPARE(title->font().weight(), QFont::DemiBold);
        const ElidedLabel *status = label(header, "statusLabel");
        QCOMPARE(status->text(), QString());
        QCOMPARE(status->font().pixelSize(), 11);
        QCOMPARE(status->font().weight(), QFont::Normal);
    }

    void headerShowsTheStateInBothForms()
    {
        MenuHeaderView header;
        header.setPalette(QPalette(Qt::white));
        const QImage before = header.grab().toImage();
        QCOMPARE(before.pixelColor(58, 35), before.pixelColor(70, 45)); // no dot colour until one is set

        const HeaderPresentation amber = headerPresentation(TrayState::LoggedOut);
        header.setPresentation(amber);
        QCOMPARE(label(header, "statusLabel")->text(), u"Connected, needs auth"_qs);
        const QColor dot(amber.color.red, amber.color.green, amber.color.blue);
        QCOMPARE(header.grab().toImage().pixelColor(58, 35), dot);

        const QList<QAction *> form = header.textForm();
        QCOMPARE(texts(form), (QStringList{u"Veltrane"_qs, u"Connected, needs auth"_qs}));
        for (const QAction *action : form)
            QVERIFY(!action->isEnabled());
        const QImage icon = form[1]->icon().pixmap(QSize(16, 16), 1.0).toImage();
        QCOMPARE(icon.pixelColor(8, 8), dot);
        QVERIFY(!form[0]->icon().isNull());

        header.setPresentation(headerPresentation(TrayState::Connected));
        QCOMPARE(texts(header.textForm())[1], u"Connected"_qs);
        QCOMPARE(label(header, "statusLabel")->text(), u"Connected"_qs);
    }

    // A row that only informs is disabled in its menu; its texts keep their colours.
    void disabledRowKeepsItsColours()
    {
        MenuHeaderView header;
        header.setEnabled(false);
        QCOMPARE(label(header, "titleLabel")->textColor(), header.palette().color(QPalette::Active, QPalette::WindowText));
        QCOMPARE(label(header, "statusLabel")->textColor(), Appearance::secondaryLabelColor(header.palette()));
        QVERIFY(label(header, "statusLabel")->textColor().alphaF() < 1);
    }

    void deviceLaysOutItsParts()
    {
        MenuDeviceView device;
        QCOMPARE(device.size(), QSize(280, 38));
        QCOMPARE(frameOf(device, "nameLabel"), QRect(14, 3, 252, 16));
        QCOMPARE(frameOf(device, "detailLabel"), QRect(14, 20, 252, 15));
        QCOMPARE(label(device, "nameLabel")->font().pixelSize(), 12);
        QCOMPARE(label(device, "nameLabel")->font().weight(), QFont::Medium);
        QCOMPARE(label(device, "detailLabel")->font().pixelSize(), 11);
        QCOMPARE(label(device, "nameLabel")->text(), QString());
        QCOMPARE(label(device, "detailLabel")->text(), QString());
    }

    void deviceShowsItsTexts_data()
    {
        QTest::addColumn<QString>("fqdn");
        QTest::addColumn<QString>("ip");
        QTest::addColumn<QString>("owner");
        QTest::addColumn<MenuDeviceText>("expected");
        const QString name = u"lab.example.ts.net"_qs;
        const QString ip = u"100.64.0.7"_qs;
        const QString owner = u"maria@example.com"_qs;
        const QString both = ip + u" \u00b7 "_qs + owner;
        QTest::newRow("no name, an address") << QString() << ip << QString()
                                             << MenuDeviceText{u"This device"_qs, ip, QString(), ip};
        QTest::newRow("everything") << name << ip << owner << MenuDeviceText{name, both, name, both};
        QTest::newRow("an owner without an address")
            << name << QString() << owner << MenuDeviceText{name, u" \u00b7 "_qs + owner, name, u" \u00b7 "_qs + owner};
        QTest::newRow("nothing") << QString() << QString() << QString()
                                 << MenuDeviceText{u"This device"_qs, QString(), QString(), QString()};
    }

    void deviceShowsItsTexts()
    {
        QFETCH(QString, fqdn);
        QFETCH(QString, ip);
        QFETCH(QString, owner);
        QFETCH(MenuDeviceText, expected);
        MenuDeviceView device;
        device.setDevice(fqdn, ip, owner);
        QCOMPARE(label(device, "nameLabel")->text(), expected.name);
        QCOMPARE(label(device, "detailLabel")->text(), expected.detail);
        QCOMPARE(label(device, "nameLabel")->toolTip(), expected.nameToolTip);
        QCOMPARE(label(device, "detailLabel")->toolTip(), expected.detailToolTip);
        QCOMPARE(texts(device.textForm()), (QStringList{expected.name, expected.detail}));
    }

    // A long DNS name keeps its beginning and its end.
    void shortensInTheMiddle()
    {
        MenuDeviceView device;
        const QString name = u"a-very-long-host-name-for-the-build-farm.engineering.example-company.ts.net"_qs;
        device.setDevice(name, u"100.64.0.7"_qs, QString());
        const QString shown = label(device, "nameLabel")->displayedText();
        QVERIFY2(shown.contains(u'\u2026'), qPrintable(shown));
        QVERIFY(shown.size() < name.size());
        QVERIFY(shown.startsWith(u"a-very"_qs));
        QVERIFY(shown.endsWith(u"ts.net"_qs));
        QCOMPARE(label(device, "detailLabel")->displayedText(), u"100.64.0.7"_qs);
    }

    // Names come from the daemon: neither the label nor its tooltip reads them as markup.
    void neverReadsDaemonTextAsMarkup()
    {
        MenuDeviceView device;
        const QString name = u"<b>lab</b> & <i>co</i>"_qs;
        device.setDevice(name, u"100.64.0.7"_qs, QString());
        device.show();
        QVERIFY(QTest::qWaitForWindowExposed(&device));
        ElidedLabel *nameLabel = label(device, "nameLabel");
        QCOMPARE(nameLabel->displayedText(), name);

        QHelpEvent help(QEvent::ToolTip, QPoint(5, 5), nameLabel->mapToGlobal(QPoint(5, 5)));
        QCoreApplication::sendEvent(nameLabel, &help);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), Qt::convertFromPlainText(name, Qt::WhiteSpaceNoWrap));
        QVERIFY(QToolTip::text().contains(u"&lt;b&gt;lab&lt;/b&gt; &amp; "_qs));
        QToolTip::hideText();
    }
};

QTEST_MAIN(TestMenuViews)
#include "tst_menuviews.moc"
