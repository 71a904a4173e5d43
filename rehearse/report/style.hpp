#pragma once

#include <string_view>

namespace rehearse {

/// The content of style.css.
extern const std::string_view kStyle;

}  // namespace rehearse
