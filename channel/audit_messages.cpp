#include "channel/audit_messages.h"

int sorvanic_common_send_syst_message(kernel::s32, kernel::s32)
{
    return 0;
}
