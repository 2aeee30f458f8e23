// Makes a handler of any callable: its parameters say which arguments it takes.

#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "orvex/arguments.h"
#include "orvex/object.h"

namespace orvex {

class Call;

namespace detail {

template <typename R, typename... P>
struct Signature {
  using Indexes = std::index_sequence_for<P...>;
};

// Found by name only, never called. A noexcept function converts to one of these.
template <typename R, typename... P>
Signature<R, P...> SignatureOf(R (*function)(P...));
template <typename C, typename R, typename... P>
Signature<R, P...> SignatureOfMember(R (C::*function)(P...));
template <typename C, typename R, typename... P>
Signature<R, P...> SignatureOfMember(R (C::*function)(P...) const);
template <typename C, typename R, typename... P>
Signature<R, P...> SignatureOfMember(R (C::*function)(P...) &);
template <typename C, typename R, typename... P>
Signature<R, P...> SignatureOfMember(R (C::*function)(P...) const&);

struct NoSignature {};

template <typename F>
auto FindSignature(int) -> decltype(SignatureOfMember(&F::operator()));
template <typename F>
auto FindSignature(int) -> decltype(SignatureOf(std::declval<F>()));
template <typename F>
NoSignature FindSignature(...);

template <typename T>
struct WithoutOptional {
  using type = T;
};
template <typename T>
struct WithoutOptional<std::optional<T>> {
  using type = T;
};

// What a parameter that a handler declares as P is filled with.
template <typename P>
struct Parameter {
  using Plain = std::remove_cv_t<std::remove_reference_t<P>>;
  using Argument = typename WithoutOptional<Plain>::type;

  static constexpr bool kIsCall = std::is_same_v<Plain, Call>;
  static constexpr bool kIsAllArguments = std::is_same_v<Plain, Arguments>;
  static constexpr bool kHasKey = !kIsCall && !kIsAllArguments;
  static constexpr bool kIsOptional = !std::is_same_v<Argument, Plain>;
  static constexpr bool kIsStruct = std::is_same_v<Argument, Struct>;
  static constexpr bool kIsReadOnly =
      !std::is_reference_v<P> ||
      (std::is_lvalue_reference_v<P> && std::is_const_v<std::remove_reference_t<P>>);
};

// The next three fail to compile, with one line that says why, for a handler that cannot be used.
// Nothing else of such a handler is compiled.
template <typename P, bool IsFirst>
constexpr bool CheckParameter() {
  using This = Parameter<P>;
  if constexpr (This::kIsCall) {
    constexpr bool kIsUsable = IsFirst && std::is_lvalue_reference_v<P>;
    static_assert(kIsUsable, "orvex: a handler takes orvex::Call& as its first parameter only");
    return kIsUsable;
  } else if constexpr (!This::kIsReadOnly) {
    static_assert(This::kIsReadOnly, "orvex: a handler takes an argument by value or const&");
    return false;
  } else {
    constexpr bool kIsUsable =
        This::kIsAllArguments || This::kIsStruct || kIsArgumentType<typename This::Argument>;
    static_assert(kIsUsable, "orvex: no argument of a task has the type of this parameter");
    return kIsUsable;
  }
}

template <typename R>
constexpr bool CheckResult() {
  constexpr bool kIsUsable = std::is_void_v<R> || std::is_convertible_v<R, Object>;
  static_assert(kIsUsable, "orvex: a handler returns void or what converts to orvex::Object");
  return kIsUsable;
}

template <typename F>
constexpr bool CheckCallable() {
  using Callable = std::decay_t<F>;
  if constexpr (!std::is_constructible_v<Callable, F>) {
    static_assert(std::is_constructible_v<Callable, F>,
                  "orvex: a handler that cannot be copied has to be moved");
    return false;
  } else {
    constexpr bool kIsUsable = !std::is_same_v<decltype(FindSignature<Callable>(0)), NoSignature>;
    static_assert(kIsUsable,
                  "orvex: a handler is a function, or an object with one operator() that is not a "
                  "template and can be called more than once");
    return kIsUsable;
  }
}

struct ParameterInfo {
  bool has_key;
  bool is_struct;
  bool is_required;
};

template <typename P>
constexpr ParameterInfo InfoOf() {
  using This = Parameter<P>;
  return {This::kHasKey, This::kIsStruct, This::kHasKey && !This::kIsOptional};
}

// Reads what the parameter P is filled with. A text or a vector that is held as P wants it comes
// without a copy, as a const reference.
template <typename P>
decltype(auto) ReadParameter(Call& call, const Arguments& arguments, [[maybe_unused]] int key) {
  using This = Parameter<P>;
  using Plain = typename This::Plain;
  if constexpr (This::kIsCall) {
    return (call);
  } else if constexpr (This::kIsAllArguments) {
    return (arguments);
  } else if constexpr (This::kIsStruct && This::kIsOptional) {
    return arguments.HasStruct(key) ? Plain(arguments.Struct(key)) : Plain();
  } else if constexpr (This::kIsStruct) {
    return Plain(arguments.Struct(key));
  } else if constexpr (This::kIsOptional) {
    return arguments.Has(key) ? Plain(arguments.Get<typename This::Argument>(key)) : Plain();
  } else {
    return arguments.Get<Plain>(key);
  }
}

// Calls the function. Constructed with braces, because these evaluate the values from left to
// right: of several wrong arguments the first one is reported.
struct Invocation {
  template <typename F, typename... V>
  explicit Invocation(F& function, V&&... values)
      : answer(Answer(function, std::forward<V>(values)...)) {}

  template <typename F, typename... V>
  static Object Answer(F& function, V&&... values) {
    if constexpr (std::is_void_v<decltype(function(std::forward<V>(values)...))>) {
      function(std::forward<V>(values)...);
      return {};
    } else {
      return function(std::forward<V>(values)...);
    }
  }

  Object answer;
};

// All that depends on the signature of a handler.
template <typename R, typename... P, std::size_t... I>
constexpr bool Check(Signature<R, P...> /*found*/, std::index_sequence<I...> /*indexes*/) {
  return (CheckParameter<P, I == 0>() && ... && CheckResult<R>());
}

// A callable with the keys of its parameters.
class Runnable {
 public:
  // Binds the parameters to `keys`, or to their default keys when it is null. Throws
  // std::logic_error when the keys cannot be bound.
  Runnable(std::initializer_list<ParameterInfo> parameters, const std::vector<int>* keys);
  virtual ~Runnable() = default;
  Runnable(const Runnable&) = delete;
  Runnable& operator=(const Runnable&) = delete;
  virtual Object Run(Call& call, const Arguments& arguments) = 0;

 protected:
  int Key(std::size_t parameter) const noexcept { return keys_[parameter]; }

 private:
  std::vector<int> keys_;  // one for each parameter
};

template <typename F, typename... P>
class BoundCallable final : public Runnable {
 public:
  template <typename G>
  BoundCallable(G&& callable, const std::vector<int>* keys)
      : Runnable({InfoOf<P>()...}, keys), callable_(std::forward<G>(callable)) {}

  Object Run(Call& call, const Arguments& arguments) override {
    return RunWith(call, arguments, std::index_sequence_for<P...>{});
  }

 private:
  template <std::size_t... I>
  Object RunWith([[maybe_unused]] Call& call, [[maybe_unused]] const Arguments& arguments,
                 std::index_sequence<I...> /*indexes*/) {
    return Invocation{callable_, ReadParameter<P>(call, arguments, Key(I))...}.answer;
  }

  F callable_;
};

// Runs one function of a service. The layer calls it with the call and the arguments of a task. The
// copies share the callable, which need not be copyable. A virtual function compiles faster than a
// std::function of each callable.
class Handler {
 public:
  Handler() noexcept = default;
  explicit Handler(Runnable* runnable);  // takes ownership

  explicit operator bool() const noexcept { return runnable_ != nullptr; }
  Object operator()(Call& call, const Arguments& arguments) const {
    return runnable_->Run(call, arguments);
  }

 private:
  std::shared_ptr<Runnable> runnable_;
};

template <typename T>
struct IsStdFunction : std::false_type {};
template <typename T>
struct IsStdFunction<std::function<T>> : std::true_type {};

[[noreturn]] void ThrowNullHandler();

template <typename F>
void RefuseNull(const F& callable) {
  if constexpr (std::is_pointer_v<F> || IsStdFunction<F>::value) {
    if (!callable) {
      ThrowNullHandler();
    }
  }
}

template <typename F, typename R, typename... P>
Handler Bind(F&& callable, const std::vector<int>* keys, Signature<R, P...> /*found*/) {
  return Handler(new BoundCallable<std::decay_t<F>, P...>(std::forward<F>(callable), keys));
}

template <typename F>
Handler MakeHandlerWithKeys(const std::vector<int>* keys, F&& callable) {
  using Callable = std::decay_t<F>;
  if constexpr (CheckCallable<F>()) {
    using Found = decltype(FindSignature<Callable>(0));
    if constexpr (Check(Found{}, typename Found::Indexes{})) {
      RefuseNull<Callable>(callable);
      return Bind(std::forward<F>(callable), keys, Found{});
    }
  }
  return {};
}

// Binds the parameters of `callable` by their order: parameter i to the argument with the "id"
// i + 1, and an orvex::Struct to the struct at position i. A first parameter orvex::Call&, and a
// parameter orvex::Arguments, which gets all arguments, do not count. A std::optional is empty when
// the argument is missing.
//
// The callable is a function, a lambda, or an object with one operator(). Tasks run it at the same
// time on their threads. It returns void or what converts to Object.
//
// The handler throws ArgumentError for a required argument that is missing, and for an argument of
// another type.
template <typename F>
Handler MakeHandler(F&& callable) {
  return MakeHandlerWithKeys(nullptr, std::forward<F>(callable));
}

// The same with one key for each parameter that counts: an "id", for a struct its position. Throws
// std::logic_error when there are more or fewer keys than such parameters.
template <typename F>
Handler MakeHandler(std::vector<int> keys, F&& callable) {
  return MakeHandlerWithKeys(&keys, std::forward<F>(callable));
}

}  // namespace detail
}  // namespace orvex

#ifndef ORVEX_SEPARATE_COMPILATION
#include "orvex/detail/handler_impl.h"
#endif
