#include "DesktopViews/ConsoleLook.h"

#include "DesktopViews/Look.h"

QFont ConsoleLook::font() { return Look::monospacedFont(13, QFont::DemiBold); }
