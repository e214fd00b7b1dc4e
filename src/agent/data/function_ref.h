// SPDX-License-Identifier: Apache-2.0
// A reference to a callable, for callbacks that are called only before the function that takes them returns.
// Unlike std::function it never allocates and owns nothing.

#ifndef AGENT_DATA_FUNCTION_REF_H
#define AGENT_DATA_FUNCTION_REF_H

#include <memory>
#include <type_traits>
#include <utility>

namespace agent {

template <typename Signature>
class FunctionRef;

template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> {
public:
    /// `function` must outlive the last call.
    template <typename Function>
    requires(!std::is_same_v<std::remove_cvref_t<Function>, FunctionRef> &&
             std::is_invocable_r_v<Result, Function&, Arguments...>)
        FunctionRef(
            Function&& function)  // NOLINT(google-explicit-constructor): lambdas are passed as they are
        : m_object(const_cast<void*>(static_cast<const void*>(std::addressof(function)))),
          m_call([](void* object, Arguments... arguments) -> Result {
              return (*static_cast<std::add_pointer_t<std::remove_reference_t<Function>>>(object))(
                  std::forward<Arguments>(arguments)...);
          })
    {
    }

    Result operator()(Arguments... arguments) const
    {
        return m_call(m_object, std::forward<Arguments>(arguments)...);
    }

private:
    void* m_object;
    Result (*m_call)(void*, Arguments...);
};

}  // namespace agent

#endif
