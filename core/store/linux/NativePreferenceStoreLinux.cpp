#include "NativePreferenceStore.h"
#include "PreferenceStoreQSettings.h"

namespace sayvo {

std::unique_ptr<PreferenceStore> createNativePreferenceStore()
{
    return std::make_unique<PreferenceStoreQSettings>();
}

} // namespace sayvo
