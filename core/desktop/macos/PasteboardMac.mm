#include "desktop/macos/PasteboardMac.h"

#import <AppKit/AppKit.h>

namespace sayvo {

std::vector<PasteboardItem> PasteboardMac::items()
{
    std::vector<PasteboardItem> result;
    for (NSPasteboardItem *item in [NSPasteboard generalPasteboard].pasteboardItems) {
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
    NSString *text = [[NSPasteboard generalPasteboard] stringForType:NSPasteboardTypeString];
    if (!text) {
        return std::nullopt;
    }
    return QString::fromNSString(text);
}

void PasteboardMac::clearContents()
{
    [[NSPasteboard generalPasteboard] clearContents];
}

bool PasteboardMac::setConcealedString(const QString &text)
{
    NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
    [pasteboard clearContents];
    const bool written = [pasteboard setString:text.toNSString() forType:NSPasteboardTypeString];
    [pasteboard setData:[NSData data] forType:@(kConcealedType)];
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
    NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
    [pasteboard clearContents];
    return [pasteboard writeObjects:objects];
}

qint64 PasteboardMac::changeCount()
{
    return [NSPasteboard generalPasteboard].changeCount;
}

} // namespace sayvo
