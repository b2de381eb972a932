#include "source/clsAmbulor.h"

namespace cnv {

// The categories that the host's option list can name, by keyword. A keyword
// whose converter is still null matches nothing.
const clsAmbulor::Categoria clsAmbulor::kCategorie[19] = {
    {"allergie", &clsAmbulor::ConvertiAllergie},
    {"appunti", &clsAmbulor::ConvertiAppunti},
    {"bmi", &clsAmbulor::ConvertiBMI},
    {"certificati", &clsAmbulor::ConvertiCertificati},
    {"certificati inps", &clsAmbulor::ConvertiCertificatiINPS},
    {"diagnosi", &clsAmbulor::ConvertiDiagnosi},
    {"esenzioni", &clsAmbulor::ConvertiEsenzioni},
    {"eventi", &clsAmbulor::ConvertiEventi},
    {"piani terapeutici", &clsAmbulor::ConvertiPianiTerapeutici},
    {"prescrizioni esami laboratorio", &clsAmbulor::ConvertiPrescrizioniEsami},
    {"prescrizioni farmaceutiche", &clsAmbulor::ConvertiPrescrizioniFarmaceutiche},
    {"prescrizioni libere", &clsAmbulor::ConvertiPrescrizioniLibere},
    {"pressione arteriosa", &clsAmbulor::ConvertiPressioneArteriosa},
    {"prestazioni", &clsAmbulor::ConvertiPrestazioni},
    {"referti", &clsAmbulor::ConvertiReferti},
    {"registrazioni private", &clsAmbulor::ConvertiRegistrazioniPrivate},
    {"scansioni", &clsAmbulor::ConvertiScansioni},
    {"vaccinazioni", &clsAmbulor::ConvertiVaccinazioni},
    {"visite ambulatoriali", &clsAmbulor::ConvertiVisiteAmbulatoriali},
};

}  // namespace cnv
