#pragma once

#include <utility>

namespace keyferry {

// Owns one client-side Wayland object (a proxy such as a wl_seat, or the display connection itself) and ends
// it with the function given with it (wl_seat_destroy, wl_display_disconnect, ...) when it is replaced, reset
// or destroyed, once. Owners declare the display first, so that its proxies end before it. Move-only; not
// thread-safe (like the objects it holds).
template <typename T> class WaylandOwned {
public:
    using Destroy = void (*)(T*);

    WaylandOwned() = default;
    WaylandOwned(T* owned, Destroy ending) : object(owned), destroy(ending) {}
    ~WaylandOwned() { reset(); }
    WaylandOwned(WaylandOwned&& other) noexcept
        : object(std::exchange(other.object, nullptr)), destroy(other.destroy) {}
    WaylandOwned& operator=(WaylandOwned&& other) noexcept {
        if (this != &other) {
            reset();
            object = std::exchange(other.object, nullptr);
            destroy = other.destroy;
        }
        return *this;
    }
    WaylandOwned(const WaylandOwned&) = delete;
    WaylandOwned& operator=(const WaylandOwned&) = delete;

    void reset() {
        if (object != nullptr) {
            destroy(std::exchange(object, nullptr));
        }
    }
    T* get() const { return object; }
    explicit operator bool() const { return object != nullptr; }

private:
    T* object = nullptr;
    Destroy destroy = nullptr;
};

} // namespace keyferry
