#include "Operation.h"

Operation::Operation(QObject *parent) : QObject(parent) {}

Operation::~Operation() = default;

void Operation::start()
{
    if (m_finished.load())
        return;
    m_executing.store(true);
    if (!isCancelled())
        main();
    m_finished.store(true);
    m_executing.store(false);
}
