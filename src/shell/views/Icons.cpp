#include "views/Icons.hpp"

#include "viewmodels/Texts.hpp"

// Outside any namespace, as Qt asks: the resources of a static library are registered by hand.
static void registerShellResources() {
    Q_INIT_RESOURCE(shell);
}

namespace quillstow::shell {

void ensureIconResources() {
    static const bool registered = (registerShellResources(), true);
    (void)registered;
}

QIcon themedSymbolIcon(const std::string& themeName) {
    ensureIconResources();
    const QString name = QString::fromStdString(themeName);
    const QIcon fallback(":/icons/" + name + ".svg");
    if (fallback.isNull()) return QIcon::fromTheme(name);
    return QIcon::fromTheme(name, fallback);
}

QIcon glyphIcon(const std::string& symbol) {
    ensureIconResources();
    return QIcon(":/icons/" + QString::fromStdString(texts::themeIconName(symbol)) + ".svg");
}

QIcon destructiveIcon() {
    ensureIconResources();
    return QIcon(":/icons/trash.destructive.svg");
}

}  // namespace quillstow::shell
