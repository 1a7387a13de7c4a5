#pragma once

#include <atomic>
#include <type_traits>

namespace Vn {

// The link of an intrusive singly-linked stack, held in the first word of the object that derives
// from it. Stacks of such nodes live inside copy-on-write state values: a copy of the state shares
// the nodes, so a thread holding a stale copy may read a node's link while the node's owner links
// it elsewhere. The link is therefore atomic and accessed relaxed; what a stale reader sees is
// discarded when its commit fails.
class LkSListNode {
public:
    // Even the first write is atomic: the memory of a node that died may be read by a stale
    // copy while a new node is built in it.
    LkSListNode() noexcept { setNext(nullptr); }
    // A copied node is a new node: it starts unlinked.
    LkSListNode(LkSListNode const&) noexcept { setNext(nullptr); }
    LkSListNode& operator=(LkSListNode const&) noexcept { return *this; }

    LkSListNode* getNext() const noexcept {
        return std::atomic_ref<LkSListNode*>(const_cast<LkSListNode*&>(_next))
            .load(std::memory_order_relaxed);
    }
    void setNext(LkSListNode* next) noexcept {
        std::atomic_ref<LkSListNode*>(_next).store(next, std::memory_order_relaxed);
    }

    // Stack operations on a plain head pointer, typically a field of a state copy. N is the node
    // class, derived from LkSListNode.
    template <class N>
    static void push(N*& head, N* node) noexcept {
        node->setNext(head);
        head = node;
    }
    // A stale copy's top may be a node that is already gone, its link garbage: the caller's
    // commit then fails and the result is dropped. The cast must not look at the object behind
    // the link, as the dynamic-type check of the undefined-behaviour sanitizer would.
    template <class N>
    __attribute__((no_sanitize("vptr"))) static N* pop(N*& head) noexcept {
        N* node = head;
        if (node)
            head = static_cast<N*>(node->getNext());
        return node;
    }

private:
    alignas(std::atomic_ref<LkSListNode*>::required_alignment) LkSListNode* _next;
};

static_assert(std::is_standard_layout_v<LkSListNode>);
static_assert(sizeof(LkSListNode) == sizeof(void*));

} // namespace Vn
