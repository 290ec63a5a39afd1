// Draws a small map with its threads as SVG, from the records of a real one.

#include <cstdio>
#include <initializer_list>

#include "qv_btree.cpp"

namespace {

constexpr int column = 58;
constexpr int row = 64;
constexpr int radius = 17;
constexpr size_t entries = 11;

int32_t compare(const void* a, const void* b) {
    return a < b ? -1 : a == b ? 0 : 1;
}

// Keys are 1, 2, 3... and stand in columns in this order.
int x_of(const qv_btree_node_t* node) {
    return static_cast<int>(reinterpret_cast<intptr_t>(node->key)) * column - column / 3;
}

int y_of(const qv_btree_node_t* root, const qv_btree_node_t* node) {
    int y = row / 2;
    for (const auto* at = root; at != node; at = x_of(node) < x_of(at) ? at->left : at->right) {
        y += row;
    }
    return y;
}

void draw_link(const qv_btree_node_t* root, const qv_btree_node_t* from, const qv_btree_node_t* to,
               bool child) {
    if (to == nullptr) {
        return;
    }
    const int x1 = x_of(from);
    const int y1 = y_of(root, from);
    const int x2 = x_of(to);
    const int y2 = y_of(root, to);
    if (child) {
        std::printf("<path d='M%d %dL%d %d' stroke='#333' stroke-width='1.5'/>\n", x1, y1, x2, y2);
    } else {
        // From the side of the node in a bow to the lower edge of its neighbour.
        const int side = x2 < x1 ? -radius : radius;
        std::printf(
            "<path d='M%d %dQ%d %d %d %d' stroke='#b40' stroke-dasharray='2 4' "
            "stroke-width='1.5' marker-end='url(#end)'/>\n",
            x1 + side, y1, x2, y1, x2, y2 + radius + 3);
    }
}

}  // namespace

int main() {
    qv_btree_t* const map = qv_btree_new(compare, nullptr, nullptr);
    for (const intptr_t key : {8, 3, 10, 2, 5, 9, 11, 1, 4, 7, 6}) {
        qv_btree_insert(map, reinterpret_cast<void*>(key), nullptr);
    }
    if (qv_btree_size(map) != entries) {
        return 1;
    }
    const auto width = static_cast<int>(entries + 1) * column;
    std::printf(
        "<svg xmlns='http://www.w3.org/2000/svg' width='%d' height='%d' fill='none' "
        "font-family='sans-serif' font-size='15'>\n<rect width='100%%' height='100%%' "
        "fill='white'/>\n<marker id='end' viewBox='0 0 6 6' refX='5' refY='3' "
        "markerWidth='6' markerHeight='6' orient='auto'><path d='M0 0L6 3L0 6' "
        "stroke='#b40'/></marker>\n",
        width - column / 2, 4 * row);
    for (const bool nodes : {false, true}) {
        for (auto* node = qv_btree_first_node(map); node != nullptr;
             node = qv_btree_next_node(node)) {
            const int x = x_of(node);
            const int y = y_of(map->root, node);
            if (!nodes) {
                draw_link(map->root, node, node->left, node->left_child != 0);
                draw_link(map->root, node, node->right, node->right_child != 0);
            } else {
                std::printf(
                    "<circle cx='%d' cy='%d' r='%d' fill='#eef' stroke='#333'/>"
                    "<text x='%d' y='%d' fill='#000' text-anchor='middle'>%d</text>\n",
                    x, y, radius, x, y + 5, (x + column / 3) / column);
            }
        }
    }
    std::printf("</svg>\n");
    qv_btree_free(map);
    return 0;
}
