#include "host/proxy/modbus_proxy.h"

namespace logohost {

ModbusProxy::ModbusProxy(Session& session, ProxyPolicy policy, ProxySettings settings,
                         RequestHandler::Recorder recorder)
    : backend_(session), handler_(backend_, std::move(policy), std::move(recorder)), server_(handler_, std::move(settings))
{
    session.addResultObserver([this](const RequestResult& result) { handler_.onResult(result); });
}

}  // namespace logohost
