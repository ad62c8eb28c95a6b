#include "desktop/macos/PasteboardMac.h"

#import <AppKit/AppKit.h>

#include <utility>

namespace sayvo {

namespace {

NSPasteboard *pasteboardNamed(const QString &name)
{
    return name.isEmpty() ? [NSPasteboard generalPasteboard]
                          : [NSPasteboard pasteboardWithName:name.toNSString()];
}

} // namespace

PasteboardMac::PasteboardMac(QString name) : m_name(std::move(name)) { }

std::vector<PasteboardItem> PasteboardMac::items()
{
    std::vector<PasteboardItem> result;
    for (NSPasteboardItem *item in pasteboardNamed(m_name).pasteboardItems) {
        PasteboardItem copy;
        for (NSPasteboardType type in item.types) {
            NSData *data = [item dataForType:type];
            if (data) {
                copy.emplace_back(QString::fromNSString(type), QByteArray::fromNSData(data));
            }
        }
        result.push_back(std::move(copy));
    }
    return result;
}

std::optional<QString> PasteboardMac::string()
{
    NSString *text = [pasteboardNamed(m_name) stringForType:NSPasteboardTypeString];
    if (!text) {
        return std::nullopt;
    }
    return QString::fromNSString(text);
}

void PasteboardMac::clearContents()
{
    [pasteboardNamed(m_name) clearContents];
}

bool PasteboardMac::setConcealedString(const QString &text)
{
    NSPasteboard *pasteboard = pasteboardNamed(m_name);
    [pasteboard prepareForNewContentsWithOptions:NSPasteboardContentsCurrentHostOnly];
    const bool written = [pasteboard setString:text.toNSString() forType:NSPasteboardTypeString];
    [pasteboard setData:[NSData data] forType:@(kConcealedType)];
    [pasteboard setData:[NSData data] forType:@(kTransientType)];
    return written;
}

bool PasteboardMac::writeItems(const std::vector<PasteboardItem> &items)
{
    NSMutableArray<NSPasteboardItem *> *objects = [NSMutableArray array];
    for (const PasteboardItem &item : items) {
        NSPasteboardItem *object = [[NSPasteboardItem alloc] init];
        for (const auto &[type, data] : item) {
            [object setData:data.toNSData() forType:type.toNSString()];
        }
        [objects addObject:object];
    }
    NSPasteboard *pasteboard = pasteboardNamed(m_name);
    [pasteboard clearContents];
    return [pasteboard writeObjects:objects];
}

qint64 PasteboardMac::changeCount()
{
    return pasteboardNamed(m_name).changeCount;
}

} // namespace sayvo
