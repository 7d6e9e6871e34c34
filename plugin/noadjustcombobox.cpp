#include "plugin/noadjustcombobox.h"

namespace {
constexpr int FIXED_HINT_WIDTH = 150;
}

QSize NoAdjustComboBox::minimumSizeHint() const {
    QSize hint = QComboBox::minimumSizeHint();
    hint.setWidth(FIXED_HINT_WIDTH);
    return hint;
}

QSize NoAdjustComboBox::sizeHint() const {
    return minimumSizeHint();
}
