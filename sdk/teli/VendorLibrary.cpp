#include "sdk/teli/VendorLibrary.h"

#include <boost/format.hpp>

#include "TavriCommon/Exceptions.h"

namespace Tavri::teli {

VendorLibrary::VendorLibrary() : module_(::LoadLibraryA(kVendorDll)) {
    if (!module_)
        throw RuntimeException(
            (boost::format("Failed to load the camera SDK %s (Windows error %d)") % kVendorDll % ::GetLastError())
                .str());
    for (std::size_t i = 0; i < kSdkOrdinals.size(); ++i) {
        const SdkOrdinal& entry = kSdkOrdinals[i];
        exports_[i] = ::GetProcAddress(module_.get(), MAKEINTRESOURCEA(entry.ordinal));
        if (!exports_[i])
            throw RuntimeException(
                (boost::format("%s lacks ordinal %d (%s)") % kVendorDll % entry.ordinal % entry.name).str());
    }
}

}  // namespace Tavri::teli
