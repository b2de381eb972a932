#include "host/failure.h"

#include <new>

namespace host::failures {

void Raise(int32_t number) {
  switch (number) {
    case kInvalidArgument:
      throw Failure(number, "Chiamata di routine o argomento non validi");
    case kTypeMismatch:
      throw Failure(number, "Tipo non corrispondente");
    case kInvalidUseOfNull:
      throw Failure(number, "Utilizzo non valido di Null");
    case kObjectRequired:
      throw Failure(number, "Necessario oggetto");
    case kMemberNotSupported:
      throw Failure(number, "Proprietà o metodo non supportati dall'oggetto");
    case kWrongArgumentCount:
      throw Failure(number, "Numero di argomenti errato o assegnazione di proprietà non valida");
    case kItemNotFound:
      throw Failure(number, "Impossibile trovare l'elemento nell'insieme corrispondente al nome o al numero ordinale richiesto.");
    case kOverflow:
      throw Failure(number, "Overflow");
    case kOutOfMemory:
      throw Failure(number, "Memoria esaurita");
    case kDivisionByZero:
      throw Failure(number, "Divisione per zero");
    case kDuplicateKey:
      throw Failure(number, "Questa chiave è già associata ad un elemento dell'insieme");
    case kInternal:
      throw Failure(number, "Errore interno");
    default:
      throw Failure(number, "Errore definito dall'applicazione o dall'oggetto");
  }
}

}  // namespace host::failures

namespace host {

Failure CurrentFailure() {
  try {
    throw;
  } catch (const Failure& f) {
    return f;
  } catch (const std::bad_alloc&) {
    return Failure(failures::kOutOfMemory, "Memoria esaurita");
  } catch (const std::exception& e) {
    return Failure(failures::kInternal, std::string("Errore interno: ") + e.what());
  } catch (...) {
    return Failure(failures::kInternal, "Errore interno");
  }
}

}  // namespace host
