// The framework's singly linked list.
//
// An intrusive list of heap nodes: each node type has `Node* next` as its
// first member, followed by its own fields. Nodes are pushed at the head and
// searched from the head, so the newest of several matching nodes is found
// first. The list owns its nodes and deletes them (with `delete`) when they
// are erased through erase_and_delete() or when the list is cleared or
// destroyed; node destructors release what the nodes own.
//
// No locking: the owner guards the list.
#pragma once

#include <cstdint>

#include <vel_loc_fw/log_util.h>

namespace vel_loc_fw {

template <typename Node>
class List {
  public:
    List() = default;
    virtual ~List() { clear(); }

    List(const List&) = delete;
    List& operator=(const List&) = delete;

    Node* head() const { return head_; }
    uint64_t size() const { return count_; }
    bool empty() const { return head_ == nullptr; }

    // Takes ownership of `node` and makes it the new head.
    void push_front(Node* node) {
        node->next = head_;
        head_ = node;
        ++count_;
    }

    // First node, from the head, for which `pred(node)` is true; null if none.
    template <typename Pred>
    Node* find(Pred pred) const {
        for (Node* n = head_; n != nullptr; n = n->next) {
            if (pred(*n)) return n;
        }
        return nullptr;
    }

    // Unlinks `node` after searching for it from the head, then deletes it.
    // Returns false, logging "erase: failed 1" under "List", when `node` is
    // not in the list (it is then left alone). The report bypasses the log
    // mutex because the logging code erases nodes while holding it.
    bool erase_and_delete(Node* node) {
        Node** link = &head_;
        while (*link != nullptr && *link != node) link = &(*link)->next;
        if (*link == nullptr) {
            log_error_no_lock("List", "erase: failed %d", 1);
            return false;
        }
        *link = node->next;
        --count_;
        delete node;
        return true;
    }

    // Unlinks every node for which `pred(node)` is true, keeping the order of
    // the others, and returns them chained through `next` (null when none);
    // the caller now owns and deletes them.
    template <typename Pred>
    Node* extract_if(Pred pred) {
        Node* taken = nullptr;
        Node** taken_tail = &taken;
        Node** link = &head_;
        while (*link != nullptr) {
            Node* node = *link;
            if (pred(*node)) {
                *link = node->next;
                --count_;
                node->next = nullptr;
                *taken_tail = node;
                taken_tail = &node->next;
            } else {
                link = &node->next;
            }
        }
        return taken;
    }

    // Deletes every node; the list is empty afterwards.
    void clear() {
        while (head_ != nullptr) {
            Node* next = head_->next;
            delete head_;
            head_ = next;
        }
        count_ = 0;
    }

  private:
    Node* head_ = nullptr;
    uint64_t count_ = 0;
};

}  // namespace vel_loc_fw
