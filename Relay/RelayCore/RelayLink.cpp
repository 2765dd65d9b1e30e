#include "RelayCore/RelayLink.h"

#include "Base/Check.h"

RelayLink::~RelayLink() { check(state == nullptr, "A link was destroyed while the relay still uses it."); }
