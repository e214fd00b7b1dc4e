// SPDX-License-Identifier: Apache-2.0
// The process sflow-app: started without arguments, ends with 0 after a normal end of the platform's
// loop and with 1 when an exception ended it.

#include "sflow_app.h"

int main()
{
    SFlowApp app;
    return app.Execute();
}
