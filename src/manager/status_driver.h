// What the registry says of a printer's driver: whether it is one of the known
// models, and whether the status manager keeps variables for it (its "status
// key").
#pragma once

namespace langmon {

struct ManagerLink;

// A driver that has a status key: a subkey of the status monitor's printers
// key that holds a "Status Variables" key.
struct StatusDriver {
    char* name;  // own text
    StatusDriver* next;
};

// 1 if the printer's driver is in the model table; the link's modelMask is
// then the driver's.
int ReadLinkModel(const char* printerName, ManagerLink* link);
// The drivers with a status key, in registry order. 0 with an empty list when
// the printers key is missing; an allocation failure ends the list early.
int ListStatusDrivers(StatusDriver** list);
void FreeStatusDrivers(StatusDriver* list);
// 1 if the printer's driver has a status key, named with or without the
// vendor's "Quor " in front.
int DriverHasStatusKey(const char* printerName);

}  // namespace langmon
