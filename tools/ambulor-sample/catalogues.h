// What the practice writes: people, places, problems, drugs, exams, and the
// titles of its documents. Problem descriptions, drug codes and exemption
// codes are those of the catalogues in data/, which hold them in UTF-8; here
// they are Windows-1252, as the practice program stores them.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace sample {

inline const char* const kMaleNames[] = {
    "Giuseppe",  "Giovanni", "Antonio",  "Mario",      "Luigi",      "Francesco", "Angelo",   "Vincenzo", "Pietro",
    "Salvatore", "Carlo",    "Franco",   "Domenico",   "Bruno",      "Paolo",     "Michele",  "Giorgio",  "Aldo",
    "Sergio",    "Luciano",  "Marco",    "Alessandro", "Andrea",     "Matteo",    "Lorenzo",  "Davide",   "Stefano",
    "Roberto",   "Fabio",    "Massimo",  "Nicol\xF2",  "Niccol\xF2", "No\xE8",    "Gabriele", "Riccardo", "Federico",
    "Simone",    "Daniele",  "Emanuele", "Claudio",    "Gian Luca"};
inline const char* const kFemaleNames[] = {
    "Maria",    "Anna",     "Giuseppina", "Rosa",       "Angela",     "Giovanna",  "Teresa",   "Lucia",
    "Carmela",  "Caterina", "Francesca",  "Anna Maria", "Antonietta", "Carla",     "Elena",    "Giulia",
    "Sofia",    "Chiara",   "Martina",    "Sara",       "Alessandra", "Valentina", "Federica", "Silvia",
    "Laura",    "Paola",    "Roberta",    "Simona",     "Elisa",      "Barbara",   "Zo\xE8",   "Ilaria",
    "Beatrice", "Aurora",   "Noemi",      "Marta",      "Cristina",   "Daniela",   "Patrizia", "Rita"};
inline const char* const kSurnames[] = {
    "Rossi",      "Russo",     "Ferrari",  "Esposito", "Bianchi",    "Romano",     "Colombo",      "Ricci",
    "Marino",     "Greco",     "Bruno",    "Gallo",    "Conti",      "De Luca",    "Mancini",      "Costa",
    "Giordano",   "Rizzo",     "Lombardi", "Moretti",  "Barbieri",   "Fontana",    "Santoro",      "Mariani",
    "Rinaldi",    "Caruso",    "Ferrara",  "Galli",    "Martini",    "Leone",      "Longo",        "Gentile",
    "Martinelli", "Vitale",    "Lombardo", "Serra",    "Coppola",    "De Santis",  "D'Angelo",     "Marchetti",
    "Parisi",     "Villa",     "Conte",    "Ferraro",  "Ferri",      "Fabbri",     "Bianco",       "Marini",
    "Grasso",     "Valentini", "Messina",  "Sala",     "De Angelis", "Gatti",      "Pellegrini",   "Palumbo",
    "Sanna",      "Farina",    "Rizzi",    "Monti",    "Cattaneo",   "Morelli",    "Amato",        "Silvestri",
    "Mazza",      "Testa",     "Grassi",   "Carbone",  "Giuliani",   "Benedetti",  "Barone",       "Caputo",
    "Guerra",     "Palmieri",  "Bernardi", "Fiore",    "D'Amico",    "Dell'Acqua", "D'Alessandro", "Lo Russo",
    "Di Stefano", "Cant\xF9",  "Bonf\xE0", "Fal\xE0"};

struct Town {
  const char* name;
  const char* province;
  const char* cadastral;  // the town's code in the codice fiscale
};

inline const Town kRome = {"Roma", "RM", "H501"};
inline const Town kBirthTowns[] = {
    {"Milano", "MI", "F205"},   {"Napoli", "NA", "F839"},    {"Torino", "TO", "L219"},
    {"Palermo", "PA", "G273"},  {"Genova", "GE", "D969"},    {"Bologna", "BO", "A944"},
    {"Firenze", "FI", "D612"},  {"Bari", "BA", "A662"},      {"Catania", "CT", "C351"},
    {"Venezia", "VE", "L736"},  {"Messina", "ME", "F158"},   {"Reggio di Calabria", "RC", "H224"},
    {"Cagliari", "CA", "B354"}, {"Foggia", "FG", "D643"},    {"Salerno", "SA", "H703"},
    {"Latina", "LT", "E472"},   {"Frosinone", "FR", "D810"}, {"Viterbo", "VT", "M082"},
    {"Rieti", "RI", "H282"},    {"L'Aquila", "AQ", "A345"},  {"Pescara", "PE", "G482"},
    {"Cosenza", "CS", "D086"},  {"Avellino", "AV", "A509"},  {"Caserta", "CE", "B963"},
    {"Perugia", "PG", "G478"},  {"Terni", "TR", "L117"},     {"Ancona", "AN", "A271"},
    {"Tivoli", "RM", "L182"},   {"Velletri", "RM", "L719"},  {"Civitavecchia", "RM", "C773"},
    {"Cassino", "FR", "C034"}};

// Where the practice's patients live: Rome and the towns around it.
struct Home {
  const char* town;
  const char* province;
  const char* cap;
  const char* asl;
};

inline const Home kHomes[] = {{"Roma", "RM", "00135", "201"},
                       {"Roma", "RM", "00152", "203"},
                       {"Roma", "RM", "00161", "201"},
                       {"Roma", "RM", "00162", "202"},
                       {"Roma", "RM", "00176", "202"},
                       {"Roma", "RM", "00179", "202"},
                       {"Roma", "RM", "00182", "202"},
                       {"Roma", "RM", "00199", "201"},
                       {"Roma", "RM", "00141", "201"},
                       {"Roma", "RM", "00137", "201"},
                       {"Roma", "RM", "00118", "203"},
                       {"Roma", "RM", "00175", "202"},
                       {"Guidonia Montecelio", "RM", "00012", "205"},
                       {"Fiumicino", "RM", "00054", "203"},
                       {"Frascati", "RM", "00044", "206"},
                       {"Ciampino", "RM", "00043", "206"},
                       {"Pomezia", "RM", "00071", "206"},
                       {"Tivoli", "RM", "00019", "205"},
                       {"Monterotondo", "RM", "00015", "205"},
                       {"Anzio", "RM", "00042", "206"},
                       {"Aprilia", "LT", "04011", "210"},
                       {"Latina", "LT", "04100", "210"}};

inline const char* const kStreets[] = {"Via Tuscolana",          "Via Casilina",    "Via Nomentana",
                                "Via Appia Nuova",        "Viale Europa",    "Via Prenestina",
                                "Corso Trieste",          "Via Cassia",      "Via Aurelia",
                                "Largo Preneste",         "Via Ostiense",    "Via Tiburtina",
                                "Via Cristoforo Colombo", "Via dei Castani", "Piazza Bologna",
                                "Via Garibaldi",          "Via Roma",        "Via Mazzini",
                                "VIA DEL CORSO",          "Via Sant'Agnese", "Via dell'Orsa Minore",
                                "Viale della Primavera",  "Via G. Marconi",  "Circonvallazione Gianicolense",
                                "Via Ugo Ojetti"};

inline const char* const kMailDomains[] = {"libero.it",  "gmail.com", "alice.it",    "tiscali.it",
                                    "hotmail.it", "yahoo.it",  "virgilio.it", "fastwebnet.it"};

struct Foreigner {
  const char* surname;
  const char* name;
  bool female;
  const char* country;
  const char* birthplace;
  const char* cadastral;
};

inline const Foreigner kForeigners[] = {{"Popescu", "Ioana", true, "ROMANIA", "BUCAREST", "Z129"},
                                 {"Ionescu", "Andrei", false, "ROMANIA", "IASI", "Z129"},
                                 {"Hoxha", "Arben", false, "ALBANIA", "DURAZZO", "Z100"},
                                 {"El Idrissi", "Fatima", true, "MAROCCO", "CASABLANCA", "Z330"},
                                 {"Kovalenko", "Olena", true, "UCRAINA", "KIEV", "Z138"},
                                 {"Reyes", "Maricel", true, "FILIPPINE", "MANILA", "Z216"},
                                 {"Pe\xF1"
                                  "a",
                                  "Jos\xE9", false, "PERU'", "LIMA", "Z611"}};

struct Drug {
  const char* aic;
  const char* name;
  const char* atc;
  const char* drug_class;  // "A" paid by the health service, "C" by the patient
  const char* nota;        // AIFA note, nullptr for none
  double price;
};

inline const Drug kDrugs[] = {{"012745093", "TACHIPIRINA*20CPR 500MG", "N02BE01", "C", nullptr, 3.90},
                       {"025300029", "TACHIPIRINA*16CPR 1000MG", "N02BE01", "A", nullptr, 2.85},
                       {"027426016", "NORVASC*28CPR 5MG", "C08CA01", "A", nullptr, 4.95},
                       {"028774011", "TRIATEC*28CPR 5MG", "C09AA05", "A", nullptr, 5.32},
                       {"033008015", "OLPRESS*28CPR RIV 20MG", "C09CA08", "A", nullptr, 7.30},
                       {"026720019", "GLUCOPHAGE*60CPR RIV 1000MG", "A10BA02", "A", nullptr, 3.19},
                       {"034522016", "TORVAST*30CPR RIV 20MG", "C10AA05", "A", "13", 6.76},
                       {"023452013", "EUTIROX*50CPR 75MCG", "H03AA01", "A", nullptr, 2.85},
                       {"004840018", "LASIX*30CPR 25MG", "C03CA01", "A", nullptr, 2.56},
                       {"026848048", "CARDIOASPIRIN*30CPR GASTRORES 100MG", "B01AC06", "A", nullptr, 2.33},
                       {"029139034", "PANTORC*28CPR GASTRORES 40MG", "A02BC02", "A", "48", 7.80},
                       {"026089037", "AUGMENTIN*12CPR RIV 875MG+125MG", "J01CR02", "A", nullptr, 9.33},
                       {"027860013", "ZITROMAX*3CPR RIV 500MG", "J01FA10", "A", nullptr, 8.98},
                       {"023256032", "VENTOLIN*SPRAY 100MCG 200D", "R03AC02", "A", nullptr, 3.41},
                       {"032006028", "SERETIDE*DISKUS 50/250MCG", "R03AK06", "A", nullptr, 38.90},
                       {"035661052", "SPIRIVA*30CPS 18MCG", "R03BB04", "A", nullptr, 45.60},
                       {"040225081", "ELIQUIS*60CPR RIV 5MG", "B01AF02", "A", "97", 73.50},
                       {"038744024", "XARELTO*28CPR RIV 20MG", "B01AF01", "A", "97", 71.20},
                       {"027754018", "ZOLOFT*15CPR RIV 50MG", "N06AB06", "A", nullptr, 5.07},
                       {"028096034", "MOMENT*12CPR RIV 200MG", "M01AE01", "C", nullptr, 7.90},
                       {"023309021", "BRUFEN*30CPR RIV 600MG", "M01AE01", "A", "66", 5.21},
                       {"027916025", "ZYRTEC*20CPR RIV 10MG", "R06AE07", "C", nullptr, 9.50},
                       {"023205017", "BENTELAN*10CPR EFF 1MG", "H02AB01", "A", nullptr, 2.15},
                       {"025484028", "MONURIL*OS GRAT 1BUST 3G", "J01XX01", "A", nullptr, 6.07},
                       {"026155018", "CIPROXIN*6CPR RIV 500MG", "J01MA02", "A", nullptr, 7.82},
                       {"024434037", "TAVOR*20CPR 1MG", "N05BA06", "C", nullptr, 5.95},
                       {"028929039", "FOSAMAX*4CPR 70MG", "M05BA04", "A", "79", 15.40},
                       {"029348011", "OMNIC*20CPS 0,4MG RM", "G04CA02", "A", nullptr, 8.87},
                       {"021478013", "ZYLORIC*30CPR 300MG", "M04AA01", "A", nullptr, 3.17},
                       {"042498040", "FORXIGA*28CPR RIV 10MG", "A10BK01", "A", "100", 48.80},
                       {"043622042", "TRULICITY*SC 4PEN 1,5MG", "A10BJ05", "A", "100", 108.60},
                       {"035998013", "LANTUS*SOLOSTAR 5PEN 3ML", "A10AE04", "A", nullptr, 62.40},
                       {"017825031", "COUMADIN*30CPR 5MG", "B01AA03", "A", nullptr, 3.55},
                       {"006826018", "DELTACORTENE*10CPR 25MG", "H02AB07", "A", nullptr, 3.39},
                       {"031827022", "TACHIDOL*20CPR 500MG+30MG", "N02AJ06", "A", nullptr, 6.03},
                       {"026842021", "CONGESCOR*28CPR 1,25MG", "C07AB07", "A", nullptr, 3.78},
                       {"028779012", "LANSOX*14CPS 30MG", "A02BC03", "A", "1", 7.50},
                       {"034946096", "DIBASE*OS GTT 10ML 10000UI/ML", "A11CC05", "A", "96", 5.36},
                       {"025991019", "PLAQUENIL*30CPR RIV 200MG", "P01BA02", "A", nullptr, 9.10},
                       {"039120010", "LYRICA*56CPS 75MG", "N03AX16", "A", "4", 31.45}};

// Drugs that the practice prescribed once and that the drug archive no
// longer lists: their codes find nothing there.
inline const Drug kWithdrawnDrugs[] = {{"901234567", "NIMESULIDE DOC*30CPR 100MG", "M01AX17", "A", "66", 4.10},
                                {"0234567", "VOLTAREN*20CPR 50MG", "M01AB05", "C", nullptr, 6.20}};

inline const Drug& DrugByAic(std::string_view aic) {
  for (const Drug& drug : kDrugs) {
    if (aic == drug.aic) return drug;
  }
  return kDrugs[0];
}

inline const char* const kDosages[] = {"1 cpr/die",
                                "1 cpr x 2/die",
                                "1 cpr al mattino",
                                "1 cpr la sera",
                                "al bisogno",
                                "2 puff x 2/die",
                                "1 cpr ogni 12 ore per 6 giorni",
                                "1 bustina/die dopo cena",
                                "1 cpr a digiuno"};

struct LabTest {
  const char* name;
  const char* code;  // of the regional list of services, the exam's CodRif
  int tipo;          // 1 laboratory, 4 laboratory with a culture
};

inline const LabTest kLabTests[] = {{"EMOCROMO CON FORMULA", "90.62.2", 1},
                             {"GLICEMIA", "90.27.1", 1},
                             {"EMOGLOBINA GLICATA (HbA1c)", "90.28.1", 1},
                             {"COLESTEROLO TOTALE", "90.14.3", 1},
                             {"COLESTEROLO HDL", "90.14.1", 1},
                             {"TRIGLICERIDI", "90.43.2", 1},
                             {"CREATININA", "90.16.3", 1},
                             {"POTASSIO", "90.37.4", 1},
                             {"TSH REFLEX", "90.42.1", 1},
                             {"ESAME URINE COMPLETO", "90.44.3", 1},
                             {"TRANSAMINASI GOT/AST", "90.09.2", 1},
                             {"TRANSAMINASI GPT/ALT", "90.04.5", 1},
                             {"PSA TOTALE", "90.56.5", 1},
                             {"URICEMIA", "90.43.5", 1},
                             {"INR (TEMPO DI PROTROMBINA)", "90.75.4", 1},
                             {"URINOCOLTURA", "90.94.2", 4},
                             {"TAMPONE FARINGEO (ESAME COLTURALE)", "91.49.3", 4},
                             {"COPROCOLTURA", "90.93.3", 4}};

inline const LabTest& LabTestByName(std::string_view name) {
  for (const LabTest& test : kLabTests) {
    if (name == test.name) return test;
  }
  return kLabTests[0];
}

// A problem of the practice's patients, as it stands in a title of VISITE.
struct Problem {
  const char* icd9;
  const char* description;
  const char* exemption;      // ESENZIONI.Codice, nullptr for none
  const char* exemption_icd;  // ESENZIONI.COD_ICD1, nullptr for none
  int min_age;
  char sex;                          // 'M' or 'F' for one sex only, 0 for both
  std::array<const char*, 4> drugs;  // AIC codes, nullptr after the last
  std::array<const char*, 3> lab;    // names of laboratory tests, nullptr after the last
};

// clang-format off
inline const Problem kChronic[] = {
    {"401.9", "Ipertensione essenziale non specificata", "031", "401", 35, 0,
     {"027426016", "028774011", "033008015", "026842021"}, {"CREATININA", "POTASSIO", "ESAME URINE COMPLETO"}},
    {"250.00", "Diabete mellito tipo II senza complicanze", "013", "250", 40, 0,
     {"026720019", "042498040", "043622042", "035998013"}, {"GLICEMIA", "EMOGLOBINA GLICATA (HbA1c)", "CREATININA"}},
    {"272.0", "Ipercolesterolemia pura", nullptr, nullptr, 35, 0,
     {"034522016"}, {"COLESTEROLO TOTALE", "COLESTEROLO HDL", "TRIGLICERIDI"}},
    {"493.90", "Asma, non specificata", "007", "493", 14, 0, {"023256032", "032006028"}, {"EMOCROMO CON FORMULA"}},
    {"496", "Ostruzioni croniche delle vie respiratorie, non classificate altrove", "024", "496", 55, 0,
     {"035661052", "023256032"}, {"EMOCROMO CON FORMULA"}},
    {"715.90", "Osteoartrosi non specificata, sede non specificata", nullptr, nullptr, 50, 0,
     {"023309021", "025300029"}, {}},
    {"244.9", "Ipotiroidismo non specificato", "027", "244", 25, 'F', {"023452013"}, {"TSH REFLEX"}},
    {"311", "Disturbo depressivo, non classificato altrove", nullptr, nullptr, 20, 0, {"027754018"}, {}},
    {"300.00", "Stato d'ansia, non specificato", nullptr, nullptr, 18, 0, {"024434037"}, {}},
    {"530.81", "Reflusso esofageo", nullptr, nullptr, 25, 0, {"029139034", "028779012"}, {}},
    {"427.31", "Fibrillazione atriale", "002", "427.31", 60, 0,
     {"040225081", "038744024", "017825031", "026842021"},
     {"INR (TEMPO DI PROTROMBINA)", "CREATININA", "EMOCROMO CON FORMULA"}},
    {"428.0", "Insufficienza cardiaca congestizia, non specificata", "021", "428", 65, 0,
     {"004840018", "026842021"}, {"CREATININA", "POTASSIO"}},
    {"733.00", "Osteoporosi, non specificata", nullptr, nullptr, 55, 'F', {"028929039", "034946096"}, {}},
    {"600.00", "Ipertrofia (benigna) della prostata senza ostruzione urinaria", nullptr, nullptr, 55, 'M',
     {"029348011"}, {"PSA TOTALE"}},
    {"274.9", "Gotta, non specificata", nullptr, nullptr, 40, 'M', {"021478013"}, {"URICEMIA"}},
    {"714.0", "Artrite reumatoide", "006", "714.0", 30, 0, {"025991019", "006826018"}, {"EMOCROMO CON FORMULA"}},
    {"414.01", "Aterosclerosi coronarica di arteria coronarica nativa", nullptr, nullptr, 55, 0,
     {"026848048", "034522016"}, {"COLESTEROLO TOTALE"}},
    {"585.3", "Malattia renale cronica, stadio III (moderata)", nullptr, nullptr, 60, 0,
     {"004840018"}, {"CREATININA", "POTASSIO", "ESAME URINE COMPLETO"}},
    {"174.9", "Tumori maligni della mammella della donna, sede non specificata", "048", nullptr, 40, 'F', {}, {}},
    {"365.9", "Glaucoma non specificato", nullptr, nullptr, 50, 0, {}, {}},
    {"332.0", "Paralisi agitante", nullptr, nullptr, 65, 0, {}, {}},
    {"278.00", "Obesit\xE0, non specificata", nullptr, nullptr, 18, 0, {}, {"GLICEMIA", "COLESTEROLO TOTALE"}},
};
// clang-format on

// clang-format off
inline const Problem kAcute[] = {
    {"465.9", "Infezioni acute delle vie respiratorie superiori, sede non specificata", nullptr, nullptr, 0, 0,
     {"012745093"}, {}},
    {"487.1", "Influenza con altre manifestazioni respiratorie", nullptr, nullptr, 0, 0, {"025300029"}, {}},
    {"462", "Faringite acuta", nullptr, nullptr, 0, 0, {"026089037"}, {"TAMPONE FARINGEO (ESAME COLTURALE)"}},
    {"466.0", "Bronchite acuta", nullptr, nullptr, 0, 0, {"027860013", "025300029"}, {}},
    {"724.2", "Lombalgia", nullptr, nullptr, 0, 0, {"023309021", "028096034"}, {}},
    {"724.3", "Sciatica", nullptr, nullptr, 0, 0, {"023309021", "023205017"}, {}},
    {"599.0", "Infezione del sistema urinario, sede non specificata", nullptr, nullptr, 0, 0,
     {"025484028", "026155018"}, {"URINOCOLTURA", "ESAME URINE COMPLETO"}},
    {"558.9", "Altre e non specificate gastroenteriti e coliti non infettive", nullptr, nullptr, 0, 0,
     {}, {"COPROCOLTURA"}},
    {"692.9", "Dermatite da contatto ed altri eczemi, causa non specificata", nullptr, nullptr, 0, 0,
     {"023205017"}, {}},
    {"477.9", "Rinite allergica, causa non specificata", nullptr, nullptr, 0, 0, {"027916025"}, {}},
    {"780.6", "Febbre", nullptr, nullptr, 0, 0, {"012745093"}, {}},
    {"786.2", "Tosse", nullptr, nullptr, 0, 0, {}, {}},
    {"784.0", "Cefalea", nullptr, nullptr, 0, 0, {"031827022"}, {}},
    {"535.50", "Gastrite e gastroduodenite non specificate", nullptr, nullptr, 0, 0, {"028779012"}, {}},
    {"564.1", "Sindrome dell'intestino irritabile", nullptr, nullptr, 0, 0, {}, {}},
    {"346.90", "Emicrania, non specificata", nullptr, nullptr, 0, 0, {"028096034"}, {}},
    {"272.4", "Iperlipidemia, altra e non specificata", nullptr, nullptr, 0, 0, {}, {"TRIGLICERIDI"}},
    {"433.10", "Occlusione e stenosi della carotide", nullptr, nullptr, 0, 0, {"026848048"}, {}},
};
// clang-format on

// Coded titles whose codes the ICD9 archive doesn't hold, and free titles.
// clang-format off
inline const Problem kUncatalogued[] = {
    {"V70.0", "Visita medica generale", nullptr, nullptr, 0, 0, {}, {}},
    {"789.00", "Dolore addominale, sede non specificata", nullptr, nullptr, 0, 0, {}, {}},
    {"719.46", "Dolore articolare, gamba", nullptr, nullptr, 0, 0, {}, {}},
    {"V04.81", "Vaccinazione antinfluenzale", nullptr, nullptr, 0, 0, {}, {}},
};
// clang-format on
inline const char* const kFreeTitles[] = {"Controllo periodico",
                                   "Certificato sportivo",
                                   "Rinnovo patente",
                                   "Colica renale",
                                   "Trauma distorsivo caviglia dx",
                                   "Stato ansioso reattivo",
                                   "Insonnia",
                                   "Dolore toracico atipico",
                                   "Vertigini",
                                   "Herpes zoster",
                                   "Congiuntivite",
                                   "Ferita lacero-contusa mano sx"};

inline std::string CodedTitle(const Problem& problem) {
  return std::string(problem.description) + " - (" + problem.icd9 + ")";
}

struct Exam {
  int tipo;  // 2 specialist visit, 3 instrumental exam, 5 hospital stay, 0 or 6 others
  const char* name;
  const char* code;
  const char* report;
};

inline const Exam kExams[] = {
    {2, "VISITA CARDIOLOGICA + ECG", "89.7A.3",
     "Paziente asintomatico per angor e dispnea. ECG: ritmo sinusale, FC 68 bpm, PR e QT nei limiti, non alterazioni "
     "della ripolarizzazione. Si conferma la terapia in atto. Controllo tra 12 mesi."},
    {2, "VISITA DIABETOLOGICA", "89.7A.8",
     "Compenso glicemico discreto (HbA1c 7,1%). Si consiglia attivit\xE0 fisica regolare e dieta ipoglucidica. "
     "Proseguire terapia. Fundus oculi annuale."},
    {2, "VISITA OCULISTICA", "95.02", "Visus 10/10 OO con correzione. Tono oculare 16 mmHg OO. Fundus nella norma."},
    {2, "VISITA DERMATOLOGICA", "89.7A.7", "Nevi melanocitari benigni. Controllo dermatoscopico tra un anno."},
    {2, "VISITA ORTOPEDICA", "89.7B.7", "Gonartrosi bilaterale, maggiore a destra. Si consiglia fisioterapia."},
    {3, "ECOGRAFIA ADDOME COMPLETO", "88.76.1",
     "Fegato di dimensioni nei limiti, ad ecostruttura omogenea, lievemente iperecogena come da steatosi. Colecisti "
     "alitiasica. Vie biliari non dilatate. Pancreas e milza nella norma. Reni in sede, di normali dimensioni, senza "
     "segni di idronefrosi. Vescica a pareti regolari. Non versamento libero in addome."},
    {3, "RX TORACE (2 PROIEZIONI)", "87.44.1", "Non lesioni pleuroparenchimali in atto. Ombra cardiaca nei limiti."},
    {3, "ECOCOLORDOPPLER TSA", "88.73.5",
     "Ispessimento medio-intimale diffuso. Placca fibrocalcifica alla biforcazione carotidea destra, stenosi < 50%."},
    {3, "SPIROMETRIA SEMPLICE", "89.37.1", "Deficit ventilatorio ostruttivo di grado lieve. FEV1/FVC 0,66."},
    {3, "DENSITOMETRIA OSSEA (MOC DEXA)", "88.99.3", "T-score lombare -2,7: osteoporosi."},
    {3, "ECOCARDIOGRAMMA", "88.72.3",
     "Ventricolo sinistro di normali dimensioni, FE 58%. Lieve insufficienza mitralica."},
    {5, "RICOVERO ORDINARIO - MEDICINA INTERNA", "",
     "Lettera di dimissione. Ricoverato per polmonite comunitaria del lobo inferiore destro, trattata con "
     "antibioticoterapia e.v. con progressivo miglioramento clinico e radiologico. Si dimette in buone condizioni "
     "generali con indicazione a proseguire la terapia a domicilio e a ripetere Rx torace tra 30 giorni."},
    {5, "DAY HOSPITAL - CARDIOLOGIA", "", "Cardioversione elettrica di fibrillazione atriale persistente, efficace."},
    {0, "CONSULENZA NUTRIZIONALE", "", "Impostata dieta ipocalorica da 1600 kcal."},
    {6, "CERTIFICAZIONE MEDICO-LEGALE", "", "Visita per il rinnovo della patente di guida: idoneo."}};

inline const char* const kMeasurementNotes[] = {
    "Dopo la cena",   // 12 characters: too short to be carried
    "Dopo il pasto",  // 13 characters
    "a riposo",      "Misurazione domiciliare", "Misurata al braccio sinistro", "Paziente agitato, ripetere",
    "Ambulatorio"};

inline const char* const kMessages[] = {"Ricordare controllo pressione tra un mese",
                                 "Paziente riferisce allergia al nichel",
                                 "Telefonare per esiti esami del sangue",
                                 "Richiede certificato per attivit\xE0 sportiva non agonistica",
                                 "Il figlio ritira le ricette il marted\xEC",
                                 "Consegnata documentazione per invalidit\xE0 civile",
                                 "Non risponde al telefono: riprovare.\r\nLasciato messaggio in segreteria."};

inline const char* const kVisitNotes[] = {
    "Paziente in buone condizioni generali. PA 130/80. Si consiglia dieta iposodica.",
    "Riferisce tosse produttiva da 5 giorni, apiretico. Al torace rari rumori umidi basali.",
    "Controllo terapia: ben tollerata. Rinnovo prescrizioni.",
    "Dolore lombare dopo sforzo. Lasegue negativo. FANS per 5 giorni.",
    "Esiti esami: colesterolo LDL 162 mg/dl. Si rinforza la dieta, ricontrollo tra 3 mesi.",
    "Cefalea tensiva. Obiettivit\xE0 neurologica negativa.",
    "Visita per astenia. Richiesti esami ematochimici.\r\nRicontrollo con gli esiti."};

inline const char* const kProblemNotes[] = {"In terapia dal primo riscontro.", "Seguito dallo specialista ambulatoriale.",
                                     "Buon compenso con la terapia in atto.", "Riferito dal paziente."};

inline const char* const kServices[] = {"VISITA DOMICILIARE",
                                 "PRIMA VISITA DOMICILIARE URGENTE",
                                 "VISITA IN ASSISTENZA DOMICILIARE INTEGRATA",
                                 "VISITA IN ASSISTENZA DOMICILIARE PROGRAMMATA",
                                 "ELETTROCARDIOGRAMMA",
                                 "SPIROMETRIA",
                                 "MEDICAZIONE SEMPLICE",
                                 "RIMOZIONE PUNTI DI SUTURA",
                                 "VACCINAZIONE ANTINFLUENZALE",
                                 "Visita domiciliare"};

inline const char* const kServiceNotes[] = {"Paziente allettato", "Accesso concordato con i familiari",
                                     "Controllo parametri e terapia", "Rinnovo piano assistenziale"};

inline const char* const kReactions[] = {
    "Allergia alla penicillina", "Orticaria dopo amoxicillina", "Reazione cutanea a FANS",        "Broncospasmo da ASA",
    "Intolleranza al lattosio",  "Allergia al nichel",          "Allergia a pollini (graminacee)"};

inline const char* const kCertificateDiagnoses[] = {"Sindrome influenzale",
                                             "Lombosciatalgia acuta",
                                             "Gastroenterite acuta",
                                             "Faringotracheite febbrile",
                                             "Trauma distorsivo dell'arto inferiore dx",
                                             "Cervicalgia acuta",
                                             "Colica renale sinistra",
                                             "Stato febbrile in corso di accertamenti"};

inline const char* const kFreePrescriptionRows[] = {"Ciclo di fisioterapia (10 sedute)",
                                             "Plantari ortopedici su misura",
                                             "Calze elastiche a compressione graduata",
                                             "Strisce reattive per glicemia",
                                             "Aghi per penna da insulina 4 mm",
                                             "Aerosolterapia",
                                             "Ausilio: deambulatore",
                                             "Materasso antidecubito",
                                             "Prima visita fisiatrica",
                                             "Cateteri vescicali Nelaton CH 14"};

inline const char* const kPlanSpecialists[] = {
    "Dr. Ferri - Cardiologia Osp. S. Camillo", "Dr.ssa Amato - Diabetologia ASL RM2",
    "Dr. Testa - Ambulatorio Diabetologico Policlinico Casilino", "Dr.ssa Lombardi - Cardiologia Osp. S. Eugenio"};

inline const char* const kScanTitles[] = {
    "Documento d'identit\xE0", "Tessera sanitaria",  "Lettera di dimissione",    "Referto esterno",        "ECG",
    "Eco addome/pelvi",        "Consenso informato", "Esami del sangue 03/2021", "Referto RM ginocchio dx"};

inline const char* const kCertificateTitles[] = {"Certificato di buona salute",
                                          "Certificato sportivo non agonistico",
                                          "Certificato per esonero educazione fisica",
                                          "Certificato di malattia per il datore di lavoro",
                                          "Richiesta di invalidit\xE0 civile",
                                          "Certificato d'idoneit\xE0 al lavoro"};

}  // namespace sample
