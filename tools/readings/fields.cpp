// SPDX-License-Identifier: Apache-2.0
#include "fields.h"

namespace readings {

std::string label(const field &f)
{
    std::string text = f.key;
    for (const std::string_view suffix : {"_mhz", "_percent", "_nm", "_bits", "_gts", "_mib", "_gtexels", "_gpixels"}) {
        if (text.ends_with(suffix))
            text.resize(text.size() - suffix.size());
    }
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

} // namespace readings
