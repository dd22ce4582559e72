#include "qimmisc/QIMException.h"

namespace QIM {

const char* QIMException::what() const noexcept { return message_ ? message_ : ""; }

}  // namespace QIM
