#include "qimmisc/IConfigurationFile.h"

namespace QIM {

// Out of line, so the interface's type information has one home.
IConfigurationFile::~IConfigurationFile() = default;

}  // namespace QIM
