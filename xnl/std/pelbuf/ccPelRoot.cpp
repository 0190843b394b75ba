#include "xnl/std/pelbuf/ccPelRoot.h"

template class ccPelRoot<uint8_t>;
template class ccPelRoot<uint16_t>;
template class ccPelRoot<uint32_t>;
template class ccPelRoot<double>;
template class ccPelRoot<int8_t>;
template class ccPelRoot<int16_t>;
template class ccPelRoot<int32_t>;
template class ccPelRoot<ccPackedRGB16Pel>;
template class ccPelRoot<ccPackedRGB32Pel>;
template class ccPelRoot<cc3PlanePel>;
