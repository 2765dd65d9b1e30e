#include "UpdateKit/InstallerReply.h"

#include "UpdateKit/InstallerServiceError.h"

#include <exception>

InstallerReply installUpdate(const InstallerLaunchRequest& request,
                             const std::function<std::unique_ptr<InstallerService>()>& makeService) {
    try {
        makeService()->validate(request);
        makeService()->run(request);
        return {};
    } catch (const InstallerServiceError& error) {
        return {error.what(), error.shouldPresentToUser()};
    } catch (const std::exception& error) {
        return {error.what(), false};
    }
}
