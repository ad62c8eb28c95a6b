#include "store/NativePreferenceStore.h"
#include "store/PreferenceStoreQSettings.h"

namespace sayvo {

std::unique_ptr<PreferenceStore> createNativePreferenceStore()
{
    return std::make_unique<PreferenceStoreQSettings>();
}

} // namespace sayvo
