#pragma once

#include "receivermodel.h"

/// One way in which a receiver can break the protocol.
struct PlantedDeviation
{
    const char *behaviour; ///< what the receiver does
    const char *check;     ///< the check of the self-test that has to find it
    ReceiverModel::Deviation handle;
};

const QList<PlantedDeviation> &plantedDeviations();

/// The deviation \a behaviour; an empty function if there is none.
ReceiverModel::Deviation plantedDeviation(const QString &behaviour);
