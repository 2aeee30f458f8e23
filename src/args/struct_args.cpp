#include "args/scalar_value.h"
#include "args/type_names.h"
#include "args/vector_elements.h"
#include "base/json_members.h"
#include "orvex_args.h"

using namespace orvd_client;

namespace {

constexpr DecoderTexts kMemberTexts{"Arg type %s and type of value do not match while parsing",
                                    "Out of range value received for %s"};

struct MemberMaps {
  orvex_typed_map_t* typed;
  orvex_value_map_t* values;
};

void StoreMember(const MemberMaps& maps, int key, orvex_data_type_t type,
                 const std::shared_ptr<ValuesInterface>& holder) {
  maps.typed->try_emplace(maps.typed->end(), key, type, holder);
  maps.values->try_emplace(maps.values->end(), key, holder);
}

int AddMember(Json::Value& member, int position, const MemberMaps& maps) {
  const std::string type_name = TextMember(member, "type", "");
  const int key = IntMember(member, "id", 0);
  const orvex_data_type_t type = TypeOfName(type_name);
  if (type == ORVEX_VECTOR) {
    // Deliberate: an invalid vector member is left out, but an invalid scalar member rejects the
    // whole task. Services may rely on tasks without the member.
    AddStructVectorParams(member, position, key, maps.typed, maps.values);
    return 0;
  }
  // A member of the type "struct" is skipped, because structs do not nest.
  return DecodeScalar(std::as_const(member)["value"], type, type_name, kMemberTexts,
                      [&](const std::shared_ptr<ValuesInterface>& holder) {
                        StoreMember(maps, key, type, holder);
                      });
}

}  // namespace

int AddStructParams(Json::Value& request, int position, orvex_func_call_info_t* info) {
  Json::Value& members = request["func"]["args"][position]["members"];
  if (!members.isArray()) {
    LOG_AT(kEveryLevel, "No struct members found while parsing");
    return -1;
  }
  // Deliberate: the library never deletes the member maps, because they belong to the service. They
  // leak if a scalar member or a later argument is rejected, or if another argument already has the
  // key.
  const MemberMaps maps{new orvex_typed_map_t, new orvex_value_map_t};
  for (Json::Value& member : members) {
    if (AddMember(member, position, maps) != 0) {
      return -1;  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
    }
  }
  // Deliberate: the key of a struct is its position; the key of every other argument is its id.
  // Services read the queues by these keys.
  QueueInsertion(info, position, std::make_shared<ParamValues<orvex_typed_map_t*>>(maps.typed),
                 ORVEX_STRUCT);
  value_QueueInsertion(info, position,
                       std::make_shared<ParamValues<orvex_value_map_t*>>(maps.values));
  return 0;
}

int AddStructVectorParams(Json::Value& member, int /*ignored*/, int key,
                          orvex_typed_map_t* typed_members, orvex_value_map_t* member_values) {
  const std::string type_name = ElementTypeName(member);
  if (type_name == kNoElementType) {
    return -1;
  }
  const MemberMaps maps{typed_members, member_values};
  return DecodeVector(member, type_name, [&](orvex_data_type_t type, const auto& holder) {
    StoreMember(maps, key, type, holder);
  });
}
