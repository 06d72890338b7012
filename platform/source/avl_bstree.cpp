#include <platform/avl_bstree.h>

#include <iterator>

bool avl_bstree::insert(__bsnode* node) {
    if (!node || node->is_in_tree())
        return false;
    nodes_.insert(*node);
    return true;
}

bool avl_bstree::remove(__bsnode* node) {
    if (!node || !node->is_in_tree())
        return false;
    nodes_.erase(nodes_.iterator_to(*node));
    return true;
}

__bsnode* avl_bstree::first() const {
    return nodes_.empty() ? nullptr : &*nodes_.begin();
}

__bsnode* avl_bstree::find(const __bsnode* key) const {
    const auto found = nodes_.find(*key);
    return found == nodes_.end() ? nullptr : &*found;
}

__bsnode* avl_bstree::next(const __bsnode* node) const {
    if (!node || !node->is_in_tree())
        return nullptr;
    const auto following = ++nodes_.iterator_to(const_cast<__bsnode&>(*node));
    return following == nodes_.end() ? nullptr : &*following;
}

__bsnode* avl_bstree::previous(const __bsnode* node) const {
    if (!node || !node->is_in_tree())
        return nullptr;
    const auto at = nodes_.iterator_to(const_cast<__bsnode&>(*node));
    return at == nodes_.begin() ? nullptr : &*std::prev(at);
}
