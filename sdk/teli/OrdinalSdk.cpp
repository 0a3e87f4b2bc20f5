// TeliSdk over the vendor DLL: each operation of sdk/SdkOperations.h calls the export
// bound to its ordinal, with the operation's own arguments, unchanged.

#include "sdk/Backends.h"
#include "sdk/teli/VendorLibrary.h"

namespace Tavri::teli {
namespace {

class OrdinalSdk final : public TeliSdk {
public:
    // Each operation calls the export bound to its ordinal, typed from the interface's
    // own member, so the arguments the DLL sees can never drift from TeliSdk's.
#define TAVRI_VENDOR_CALL(ordinal, name, parameters, arguments) \
    Result name parameters override { return library_.exportAs<indexOf(Operation::name)>(&TeliSdk::name) arguments; }
    TAVRI_SDK_OPERATIONS(TAVRI_VENDOR_CALL)
#undef TAVRI_VENDOR_CALL

private:
    VendorLibrary library_;
};

}  // namespace

std::unique_ptr<TeliSdk> makeSdk() { return std::make_unique<OrdinalSdk>(); }

}  // namespace Tavri::teli
