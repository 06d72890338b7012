#include "Sky_lists.h"

#include <algorithm>

namespace live_view {

void Sky_lists::epoch_begins() {
    for (List* list : {&numbers_, &elevations_, &azimuths_, &strengths_, &uses_})
        list->reset();
}

/// A property whose list is missing in this epoch keeps the satellite's previous value.
void Sky_lists::combine() {
    const auto fits = [this](const List& list) { return list && list->size() == numbers_->size(); };
    if (!numbers_ || !fits(elevations_) || !fits(azimuths_))
        return;
    std::vector<Satellite> before;
    before.swap(satellites_);
    for (std::size_t i = 0; i < numbers_->size(); ++i) {
        Satellite satellite{(*numbers_)[i], (*elevations_)[i], (*azimuths_)[i], {}, {}};
        const auto known = std::find_if(before.begin(), before.end(),
                                        [&](const Satellite& other) { return other.number == satellite.number; });
        if (known != before.end()) {
            satellite.strength = known->strength;
            satellite.use = known->use;
        }
        if (fits(strengths_))
            satellite.strength = (*strengths_)[i];
        if (fits(uses_))
            satellite.use = (*uses_)[i];
        satellites_.push_back(satellite);
    }
}

} // namespace live_view
