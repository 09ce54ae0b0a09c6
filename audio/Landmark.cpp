#include "Landmark.h"

#include "Stream.h"

void Landmark::action()
{
    if (m_stream)
        m_stream->landmarkReached(*this);
}
