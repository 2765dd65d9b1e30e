#include "UpdateKit/UpdateFailureInfo.h"

#include "Base/Check.h"

const char* name(UpdateFailureCategory category) {
    switch (category) {
        case UpdateFailureCategory::manifest: return "manifest";
        case UpdateFailureCategory::download: return "download";
        case UpdateFailureCategory::extraction: return "extraction";
        case UpdateFailureCategory::validation: return "validation";
        case UpdateFailureCategory::installation: return "installation";
        case UpdateFailureCategory::unknown: return "unknown";
    }
    fatal("a category of failures has no name");
}
