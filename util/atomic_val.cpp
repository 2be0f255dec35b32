#include "util/atomic_val.h"

namespace mg {

template class AtomicVal<long>;
template class AtomicVal<void*>;

}  // namespace mg
