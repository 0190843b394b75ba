#include "xnl/std/pelbuf/ccPelDisposable.h"

ccPelDisposable::~ccPelDisposable() = default;
