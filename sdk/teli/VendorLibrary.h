#pragma once
// The vendor's camera DLL, loaded once and bound by ordinal alone: the library's
// export names are not part of its contract, its ordinals are.

#include <windows.h>

#include <array>
#include <cstddef>
#include <memory>
#include <type_traits>

#include "sdk/TeliSdk.h"

namespace Tavri::teli {

constexpr const char* kVendorDll = "TeliCamApi64.dll";

class VendorLibrary {
public:
    // Loads the DLL and resolves every ordinal of kSdkOrdinals; throws
    // RuntimeException naming the DLL, or the first ordinal it lacks.
    VendorLibrary();

    // The export in `Slot` (indexOf(Operation)) as the function the operation `Member` describes: the same
    // arguments, a 32-bit result, the platform's one x64 calling convention.
    template <std::size_t Slot, typename... Params>
    auto exportAs(Result (TeliSdk::*)(Params...)) const {
        using Function = Result(WINAPI*)(Params...);
        static_assert(Slot < kSdkOrdinals.size(), "slot in the ordinal table");
        // Through void*: FARPROC and the export's real type are unrelated function types.
        return reinterpret_cast<Function>(reinterpret_cast<void*>(exports_[Slot]));
    }

private:
    struct FreeModule {
        void operator()(HMODULE module) const { ::FreeLibrary(module); }
    };
    std::unique_ptr<std::remove_pointer_t<HMODULE>, FreeModule> module_;
    std::array<FARPROC, kSdkOrdinals.size()> exports_{};
};

}  // namespace Tavri::teli
