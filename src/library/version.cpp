#include "butngain/butngain.hpp"

namespace butngain {

const char* version() { return BUTNGAIN_LIBRARY_VERSION; }

}  // namespace butngain
