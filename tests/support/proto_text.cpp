// SPDX-License-Identifier: Apache-2.0
#include "support/proto_text.h"

#include <fstream>
#include <memory>
#include <stdexcept>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

namespace support {
namespace {

class Definitions {
public:
    Definitions()
    {
        std::ifstream file(SUPPORT_DEFINITIONS, std::ios::binary);
        google::protobuf::FileDescriptorSet set;
        if (!set.ParseFromIstream(&file)) throw std::runtime_error("no definitions in " SUPPORT_DEFINITIONS);
        for (const auto& one : set.file())
            if (m_pool.BuildFile(one) == nullptr)
                throw std::runtime_error("definitions are wrong: " + one.name());
    }

    std::unique_ptr<google::protobuf::Message> Make(const std::string& type)
    {
        const auto* known = m_pool.FindMessageTypeByName(type);
        if (known == nullptr) throw std::runtime_error("no definition has the message " + type);
        return std::unique_ptr<google::protobuf::Message>(m_factory.GetPrototype(known)->New());
    }

private:
    google::protobuf::DescriptorPool m_pool;
    google::protobuf::DynamicMessageFactory m_factory{&m_pool};
};

Definitions& Known()
{
    static Definitions definitions;
    return definitions;
}

}  // namespace

std::string TextOf(const google::protobuf::MessageLite& message)
{
    const auto same = Known().Make(message.GetTypeName());
    if (!same->ParseFromString(message.SerializeAsString())) throw std::runtime_error("the message is none");
    return same->ShortDebugString();
}

bool FromText(const std::string& text, google::protobuf::MessageLite& message)
{
    const auto same = Known().Make(message.GetTypeName());
    return google::protobuf::TextFormat::ParseFromString(text, same.get()) &&
           message.ParseFromString(same->SerializeAsString());
}

}  // namespace support
