// Linked into the tests, not loaded: this says so to the macros below.
#define QT_STATICPLUGIN

#include <QProxyStyle>
#include <QStylePlugin>
#include <QtPlugin>

/// A style "owncolors" that Qt can make by its name, as it makes those of a desktop.
class OwnColorsStyle : public QStylePlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QStyleFactoryInterface_iid FILE "OwnColorsStyle.json")

public:
    QStyle* create(const QString&) override { return new QProxyStyle(QStringLiteral("Windows")); }
};

Q_IMPORT_PLUGIN(OwnColorsStyle)

#include "OwnColorsStyle.moc"
