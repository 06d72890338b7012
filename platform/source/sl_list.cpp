#include <platform/sl_list.h>

bool sl_list::push_back(__slnode* node) {
    if (!node || node->list_)
        return false;
    nodes_.push_back(*node);
    node->list_ = this;
    return true;
}

bool sl_list::remove(__slnode* node) {
    if (!node || node->list_ != this)
        return false;
    nodes_.erase(nodes_.iterator_to(*node));
    node->list_ = nullptr;
    return true;
}

__slnode* sl_list::first() const {
    return nodes_.empty() ? nullptr : &nodes_.front();
}

__slnode* sl_list::next(const __slnode* node) const {
    if (!node || node->list_ != this)
        return nullptr;
    const auto following = ++nodes_.iterator_to(const_cast<__slnode&>(*node));
    return following == nodes_.end() ? nullptr : &*following;
}
