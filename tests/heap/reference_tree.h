// reference_tree.h - a red-black tree of free blocks in ordinary memory, written from the textbook: nodes
// with pointers and a sentinel. What the library's tree in the area must look like after the same steps.
#ifndef VORN_TESTS_HEAP_REFERENCE_TREE_H
#define VORN_TESTS_HEAP_REFERENCE_TREE_H

#include <cstdint>
#include <map>

namespace heap_test {

class ReferenceTree {
public:
    struct Node {
        uint64_t offset = 72;
        uint64_t size = 0;
        bool red = false;
        Node* parent = nullptr;
        Node* left = nullptr;
        Node* right = nullptr;
    };

    ReferenceTree() { root_ = &nil_; }

    void Insert(uint64_t offset, uint64_t size)
    {
        Node* z = &nodes_[offset];
        z->offset = offset;
        z->size = size;
        Node* y = &nil_;
        Node* x = root_;
        while (x != &nil_) {
            y = x;
            x = size < x->size ? x->left : x->right;
        }
        z->parent = y;
        if (y == &nil_) {
            root_ = z;
        } else if (size < y->size) {
            y->left = z;
        } else {
            y->right = z;
        }
        z->left = z->right = &nil_;
        z->red = true;
        while (z->parent->red) {
            if (z->parent == z->parent->parent->left) {
                y = z->parent->parent->right;
                if (y->red) {
                    z->parent->red = false;
                    y->red = false;
                    z->parent->parent->red = true;
                    z = z->parent->parent;
                } else {
                    if (z == z->parent->right) {
                        z = z->parent;
                        RotateLeft(z);
                    }
                    z->parent->red = false;
                    z->parent->parent->red = true;
                    RotateRight(z->parent->parent);
                }
            } else {
                y = z->parent->parent->left;
                if (y->red) {
                    z->parent->red = false;
                    y->red = false;
                    z->parent->parent->red = true;
                    z = z->parent->parent;
                } else {
                    if (z == z->parent->left) {
                        z = z->parent;
                        RotateRight(z);
                    }
                    z->parent->red = false;
                    z->parent->parent->red = true;
                    RotateLeft(z->parent->parent);
                }
            }
        }
        root_->red = false;
    }

    void Remove(uint64_t offset)
    {
        Node* z = &nodes_.at(offset);
        Node* y = z;
        bool yWasRed = y->red;
        Node* x;
        if (z->left == &nil_) {
            x = z->right;
            Transplant(z, z->right);
        } else if (z->right == &nil_) {
            x = z->left;
            Transplant(z, z->left);
        } else {
            y = z->right;
            while (y->left != &nil_) y = y->left;
            yWasRed = y->red;
            x = y->right;
            if (y->parent == z) {
                x->parent = y;
            } else {
                Transplant(y, y->right);
                y->right = z->right;
                y->right->parent = y;
            }
            Transplant(z, y);
            y->left = z->left;
            y->left->parent = y;
            y->red = z->red;
        }
        if (!yWasRed) RemoveFixup(x);
        nodes_.erase(offset);
    }

    uint64_t Root() const { return root_->offset; }
    const std::map<uint64_t, Node>& Nodes() const { return nodes_; }
    // What the layout stores for a parent: 0 above the root.
    uint64_t ParentOf(const Node& node) const { return node.parent == &nil_ ? 0 : node.parent->offset; }

private:
    void RotateLeft(Node* x)
    {
        Node* y = x->right;
        x->right = y->left;
        if (y->left != &nil_) y->left->parent = x;
        y->parent = x->parent;
        if (x->parent == &nil_) {
            root_ = y;
        } else if (x == x->parent->left) {
            x->parent->left = y;
        } else {
            x->parent->right = y;
        }
        y->left = x;
        x->parent = y;
    }

    void RotateRight(Node* x)
    {
        Node* y = x->left;
        x->left = y->right;
        if (y->right != &nil_) y->right->parent = x;
        y->parent = x->parent;
        if (x->parent == &nil_) {
            root_ = y;
        } else if (x == x->parent->right) {
            x->parent->right = y;
        } else {
            x->parent->left = y;
        }
        y->right = x;
        x->parent = y;
    }

    void Transplant(Node* u, Node* v)
    {
        if (u->parent == &nil_) {
            root_ = v;
        } else if (u == u->parent->left) {
            u->parent->left = v;
        } else {
            u->parent->right = v;
        }
        v->parent = u->parent;
    }

    void RemoveFixup(Node* x)
    {
        while (x != root_ && !x->red) {
            if (x == x->parent->left) {
                Node* w = x->parent->right;
                if (w->red) {
                    w->red = false;
                    x->parent->red = true;
                    RotateLeft(x->parent);
                    w = x->parent->right;
                }
                if (!w->left->red && !w->right->red) {
                    w->red = true;
                    x = x->parent;
                } else {
                    if (!w->right->red) {
                        w->left->red = false;
                        w->red = true;
                        RotateRight(w);
                        w = x->parent->right;
                    }
                    w->red = x->parent->red;
                    x->parent->red = false;
                    w->right->red = false;
                    RotateLeft(x->parent);
                    x = root_;
                }
            } else {
                Node* w = x->parent->left;
                if (w->red) {
                    w->red = false;
                    x->parent->red = true;
                    RotateRight(x->parent);
                    w = x->parent->left;
                }
                if (!w->right->red && !w->left->red) {
                    w->red = true;
                    x = x->parent;
                } else {
                    if (!w->left->red) {
                        w->right->red = false;
                        w->red = true;
                        RotateLeft(w);
                        w = x->parent->left;
                    }
                    w->red = x->parent->red;
                    x->parent->red = false;
                    w->left->red = false;
                    RotateRight(x->parent);
                    x = root_;
                }
            }
        }
        x->red = false;
    }

    Node nil_;
    Node* root_;
    std::map<uint64_t, Node> nodes_;
};

}  // namespace heap_test

#endif
