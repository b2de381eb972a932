#include "tools/ambulor-inspect/key_matching.h"

#include <algorithm>
#include <set>

#include "host/failure.h"
#include "host/text.h"
#include "host/value.h"
#include "source/recordset.h"

namespace inspect {

std::vector<std::string> PatientKeys(source::Connection& user) {
  std::set<std::string> seen;
  std::vector<std::string> keys;
  source::Recordset rs;
  rs.Open("SELECT Cod_Cart FROM PAZIENTI", user);
  for (; !rs.Eof(); rs.MoveNext()) {
    std::string key = rs.QueryText("Cod_Cart");
    if (!key.empty() && seen.insert(key).second) keys.push_back(std::move(key));
  }
  rs.Close();
  return keys;
}

std::vector<SharedKey> SharedKeys(source::Connection& user) {
  std::vector<std::string> grouped;
  source::Recordset groups;
  groups.Open("SELECT Cod_Cart AS K FROM PAZIENTI WHERE Cod_Cart IS NOT NULL GROUP BY Cod_Cart HAVING COUNT(*) > 1",
              user);
  for (; !groups.Eof(); groups.MoveNext()) grouped.push_back(groups.QueryText("K"));
  groups.Close();

  // The members of each group, found by the master record's own query.
  std::vector<SharedKey> shared;
  for (const std::string& key : grouped) {
    SharedKey group;
    bool converted = false;
    try {
      source::Recordset rs;
      rs.Open("SELECT cognome, nome, Cod_Cart FROM PAZIENTI WHERE Cod_Cart = (?) ORDER BY COGNOME, NOME", {key}, user);
      for (; !rs.Eof(); rs.MoveNext()) {
        if (group.patients.empty()) group.key = host::TextOf(rs.Field("Cod_Cart"));
        group.patients.push_back(host::text::Upper(host::TextOf(rs.Field("cognome"))) + " " +
                                 host::text::Upper(host::TextOf(rs.Field("nome"))));
        group.keys.push_back(rs.QueryText("Cod_Cart"));
        converted = converted || !group.keys.back().empty();
      }
      rs.Close();
    } catch (const host::Failure&) {
      continue;  // a key with a quote fails its patients' queries: nothing is read for them
    }
    if (converted && group.patients.size() > 1) shared.push_back(std::move(group));
  }
  return shared;
}

namespace {

// Adds to selected the row keys (RDB$DB_KEY) of the rows that keys[first,
// last) select together. A query that fails is split until each key that
// fails it stands alone, selecting nothing.
void SelectRows(source::Connection& connection, const std::string& table, const std::vector<std::string>& keys,
                size_t first, size_t last, std::set<std::string>& selected) {
  std::string sql = "SELECT RDB$DB_KEY AS R FROM " + table + " WHERE CodCart IN (";
  for (size_t i = first; i < last; ++i) sql += i == first ? "?" : ", ?";
  sql += ")";
  try {
    source::Recordset rs;
    rs.Open(sql, std::vector<std::string>(keys.begin() + first, keys.begin() + last), connection);
    for (; !rs.Eof(); rs.MoveNext()) selected.insert(rs.QueryText("R"));
    rs.Close();
  } catch (const host::Failure&) {
    if (last - first == 1) return;
    const size_t middle = first + (last - first) / 2;
    SelectRows(connection, table, keys, first, middle, selected);
    SelectRows(connection, table, keys, middle, last, selected);
  }
}

}  // namespace

int64_t RowsOfNoPatient(source::Connection& connection, const std::string& table,
                        const std::vector<std::string>& keys) {
  // Short keys go a few hundred to a query; a longer one goes alone, its
  // parameter taking the room of the longest text.
  constexpr size_t kShortKey = 64, kKeysPerQuery = 200;
  std::vector<std::string> short_keys, long_keys;
  for (const std::string& key : keys) (key.size() <= kShortKey ? short_keys : long_keys).push_back(key);
  std::set<std::string> selected;
  for (size_t first = 0; first < short_keys.size(); first += kKeysPerQuery)
    SelectRows(connection, table, short_keys, first, std::min(short_keys.size(), first + kKeysPerQuery), selected);
  for (size_t i = 0; i < long_keys.size(); ++i) SelectRows(connection, table, long_keys, i, i + 1, selected);

  source::Recordset rs;
  rs.Open("SELECT COUNT(*) AS N FROM " + table, connection);
  const int64_t rows = std::stoll(rs.QueryText("N"));
  rs.Close();
  return rows - static_cast<int64_t>(selected.size());
}

}  // namespace inspect
