#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

/// What cow_Btree promises, written down once more in the plainest way: recursive, on std::shared_ptr, whose use count is the number of
/// holders that share a node.
struct ModelTree {
    struct Node;
    using Link = std::shared_ptr<Node>;
    struct Node {
        int key;
        int value;
        int height = 0;
        Link left = nullptr;
        Link right = nullptr;
    };

    static Node& Unshared(Link& link)
    {
        if (link.use_count() > 1)
            link = std::make_shared<Node>(*link);
        return *link;
    }
    static Link& Side(Node& node, int key) { return Compare(key, node.key) < 0 ? node.left : node.right; }

    // The difference brought into [-2^31, 2^31).
    static std::int64_t Compare(int key, int nodeKey)
    {
        std::int64_t const range = std::int64_t{1} << 32, difference = std::int64_t{key} - nodeKey;
        return difference >= range / 2 ? difference - range : difference < -range / 2 ? difference + range : difference;
    }

    static void UpdateHeight(Node& node)
    {
        node.height = std::max(node.left ? node.left->height + 1 : 0, node.right ? node.right->height + 1 : 0);
    }

    static void Balance(Link& link)
    {
        int const tilt = (link->right ? link->right->height : 0) - (link->left ? link->left->height : 0);
        if (tilt > -2 && tilt < 2)
            return;
        Node& node = Unshared(link);
        Link top = std::move(tilt > 0 ? node.right : node.left);
        Unshared(top);
        Link& inner = tilt > 0 ? top->left : top->right;
        (tilt > 0 ? node.right : node.left) = std::move(inner);
        inner = std::move(link);
        UpdateHeight(node);
        UpdateHeight(*top);
        link = std::move(top);
    }

    static bool Insert(Node& node, int key, int value)
    {
        if (key == node.key)
            return false;
        Link& link = Side(node, key);
        if (!link)
            link = std::make_shared<Node>(Node{key, value});
        else if (!Insert(Unshared(link), key, value))
            return false;
        else
            Balance(link);
        UpdateHeight(node);
        return true;
    }

    static Link TakeSmallest(Link& link)
    {
        Node& node = Unshared(link);
        if (!node.left)
            return std::exchange(link, Link(node.right));
        bool const isAbove = !node.left->left;
        Link smallest = TakeSmallest(node.left);
        if (isAbove)
            UpdateHeight(node); // the nodes further up keep their heights
        return smallest;
    }

    static bool Remove(Link& link, int key, Node* parent)
    {
        Node& node = Unshared(link);
        if (key == node.key) {
            Link replacement;
            if (!node.left || !node.right)
                replacement = std::move(node.left ? node.left : node.right);
            else {
                replacement = TakeSmallest(node.right);
                replacement->left = std::move(node.left);
                replacement->right = std::move(node.right);
                UpdateHeight(*replacement);
            }
            link = std::move(replacement);
            if (parent != nullptr)
                UpdateHeight(*parent);
            return true;
        }
        Link& below = Side(node, key);
        if (!below || !Remove(below, key, &node))
            return false;
        if (below)
            Balance(below);
        UpdateHeight(node);
        return true;
    }

    bool InsertUnlessMember(int key, int value)
    {
        if (!root)
            root = std::make_shared<Node>(Node{key, value});
        else if (!Insert(Unshared(root), key, value))
            return false;
        else
            Balance(root);
        ++size;
        return true;
    }

    bool Remove(int key)
    {
        if (!root || !Remove(root, key, nullptr))
            return false;
        if (root)
            Balance(root);
        --size;
        return true;
    }

    Node* Find(int key)
    {
        for (Link* link = &root; *link; link = &Side(**link, key))
            if (Unshared(*link).key == key)
                return link->get();
        return nullptr;
    }

    Link root;
    int size = 0;
};
