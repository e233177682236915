// The two service factories of the SDK and the function caches behind them.
#include "platkit/Loader.h"
#include "platkit/focus/IVrFocusManager.h"
#include "platkit/instsamp/IInstructionSampler.h"

namespace Platkit {
namespace {

using Focus::v5::IVrFocusManager;
using InstructionSampler::v4::IInstructionSampler;

template <typename Interface>
using Create = typename internal::PtrFactory<Interface>::Create;
template <typename Interface>
using Destroy = typename internal::PtrFactory<Interface>::Destroy;

Symbol::Cache<Create<IVrFocusManager>> g_createFocusManager(internal::platkitModule,
                                                            "createVrFocusManager");
Symbol::Cache<Destroy<IVrFocusManager>> g_destroyFocusManager(internal::platkitModule,
                                                              "destroyVrFocusManager");
internal::PtrFactory<IVrFocusManager> g_focusManagers(g_createFocusManager, g_destroyFocusManager,
                                                      5);

Symbol::Cache<Create<IInstructionSampler>> g_createSampler(internal::instsampModule,
                                                           "createInstructionSampler");
Symbol::Cache<Destroy<IInstructionSampler>> g_destroySampler(internal::instsampModule,
                                                             "destroyInstructionSampler");
internal::PtrFactory<IInstructionSampler> g_samplers(g_createSampler, g_destroySampler, 4);

}  // namespace

namespace Focus::v5 {
std::shared_ptr<IVrFocusManager> createVrFocusManagerPtr() {
    return g_focusManagers.makeShared();
}
}  // namespace Focus::v5

namespace InstructionSampler::v4 {
std::shared_ptr<IInstructionSampler> createInstructionSamplerPtr() {
    return g_samplers.makeShared();
}
}  // namespace InstructionSampler::v4

}  // namespace Platkit
