#include "TavriCommon/Serialization.h"

#include <boost/core/demangle.hpp>
#include <typeinfo>

namespace Tavri::Serialization {

std::ostream& operator<<(std::ostream& out, const std::exception& error) {
    return out << boost::core::demangle(typeid(error).name()) << ": " << error.what();
}

std::ostream& operator<<(std::ostream& out, const NameValuePair& pair) {
    return out << pair.name << " = \"" << pair.value << '"';
}

}  // namespace Tavri::Serialization
