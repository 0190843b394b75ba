#include "xnl/std/except/ccException.h"

std::string ccException::DetailedMessage() const {
    std::string text = Message();
    if (!details_.empty()) {
        text += ": ";
        text += details_;
    }
    return text;
}
