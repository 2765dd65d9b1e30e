// Tell the macros below that the plugin is linked into the tests, not loaded.
#define QT_STATICPLUGIN

#include <QProxyStyle>
#include <QStylePlugin>
#include <QtPlugin>

/// A style "owncolors" that Qt can make by its name, like the style plugins of a desktop.
class OwnColorsStyle : public QStylePlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QStyleFactoryInterface_iid FILE "OwnColorsStyle.json")

public:
    QStyle* create(const QString&) override { return new QProxyStyle(QStringLiteral("Windows")); }
};

Q_IMPORT_PLUGIN(OwnColorsStyle)

#include "OwnColorsStyle.moc"
