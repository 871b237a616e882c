/*
 * The inventory's word on itself, one HWISupport: not ready while the host still publishes, ready
 * from then on. Clients see it as a property or ask, which a C callback answers.
 */
#pragma once

#include <gantry/context.hpp>

namespace GANTRY_com_orvane_velmar_hwi_HWISupport
{
class HWISupport;
}

class Readiness
{
  public:
    /** Publishes the object. The callback uses this record, which must outlive the dispatch loop.
     */
    explicit Readiness(GANTRY_cpp_context& context);
    Readiness(const Readiness&) = delete;
    Readiness(Readiness&&) = delete;
    Readiness& operator=(const Readiness&) = delete;
    Readiness& operator=(Readiness&&) = delete;
    ~Readiness() = default;

    /** Announces that everything is published. */
    void declare();

    [[nodiscard]] bool declared() const;

  private:
    GANTRY_com_orvane_velmar_hwi_HWISupport::HWISupport* object;
};
