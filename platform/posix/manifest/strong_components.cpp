#include "platform/posix/manifest/strong_components.h"

#include <algorithm>

namespace ProcMgr {
namespace {

constexpr size_t kUnseen = 0;

/// Tarjan's algorithm with a stack of its own, because a chain may have as many vertices as there are applications.
class ComponentFinder {
public:
    explicit ComponentFinder(const Successors& successors)
        : successors_(successors),
          order_(successors.size(), kUnseen),
          low_(order_),
          isOpen_(successors.size(), false) {}

    std::vector<std::vector<size_t>> Find() {
        for (size_t vertex = 0; vertex < successors_.size(); ++vertex) {
            if (order_[vertex] == kUnseen) {
                Walk(vertex);
            }
        }
        return std::move(components_);
    }

private:
    struct Visit {
        size_t vertex;
        size_t nextSuccessor;
    };

    void Walk(size_t root) {
        Enter(root);
        while (!visits_.empty()) {
            Visit& visit = visits_.back();
            const std::vector<size_t>& successors = successors_[visit.vertex];
            if (visit.nextSuccessor == successors.size()) {
                Leave();
                continue;
            }
            const size_t next = successors[visit.nextSuccessor++];
            if (order_[next] == kUnseen) {
                Enter(next);
            } else if (isOpen_[next]) {
                low_[visit.vertex] = std::min(low_[visit.vertex], order_[next]);
            }
        }
    }

    void Enter(size_t vertex) {
        order_[vertex] = low_[vertex] = ++count_;
        isOpen_[vertex] = true;
        open_.push_back(vertex);
        visits_.push_back({vertex, 0});
    }

    void Leave() {
        const size_t vertex = visits_.back().vertex;
        visits_.pop_back();
        if (!visits_.empty()) {
            size_t& low = low_[visits_.back().vertex];
            low = std::min(low, low_[vertex]);
        }
        if (low_[vertex] == order_[vertex]) {
            TakeComponent(vertex);
        }
    }

    void TakeComponent(size_t root) {
        std::vector<size_t> component;
        size_t vertex = 0;
        do {
            vertex = open_.back();
            open_.pop_back();
            isOpen_[vertex] = false;
            component.push_back(vertex);
        } while (vertex != root);
        components_.push_back(std::move(component));
    }

    const Successors& successors_;
    std::vector<size_t> order_;
    std::vector<size_t> low_;
    std::vector<bool> isOpen_;
    std::vector<size_t> open_;
    std::vector<Visit> visits_;
    std::vector<std::vector<size_t>> components_;
    size_t count_ = kUnseen;
};

}  // namespace

std::vector<std::vector<size_t>> StrongComponents(const Successors& successors) {
    return ComponentFinder(successors).Find();
}

}  // namespace ProcMgr
