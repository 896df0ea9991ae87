/// How work that is kept for later learns that its object is gone.
#pragma once

#include <memory>
#include <utility>

/// Held by an object whose destruction callbacks may outlive, or cause. A `Watch` taken from it
/// tells whether the object still lives; it costs no more than a counted pointer.
///
///     const auto watch = token_.watch();
///     callServiceCode();
///     if (watch.gone()) return;  // touch no member any more
template <class T>
class LifeToken {
 public:
  class Watch {
   public:
    /// The object, null when it is gone.
    T* get() const { return *object_; }
    bool gone() const { return *object_ == nullptr; }

   private:
    friend class LifeToken;
    explicit Watch(std::shared_ptr<T*> object) : object_(std::move(object)) {}
    std::shared_ptr<T*> object_;
  };

  explicit LifeToken(T* object) : object_(std::make_shared<T*>(object)) {}
  ~LifeToken() { end(); }
  LifeToken(const LifeToken&) = delete;
  LifeToken& operator=(const LifeToken&) = delete;

  Watch watch() const { return Watch(object_); }
  /// From here on the object counts as gone.
  void end() { *object_ = nullptr; }

 private:
  std::shared_ptr<T*> object_;
};
