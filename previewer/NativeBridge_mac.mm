// The Quick Look panel, driven from the window program: directly (CallSelectedItems), or through a
// small application run loop whose delegate acts as the panel's data source (SetWindowLevel).
// Built without ARC: objects are retained and released by hand.

#include "previewer/NativeBridge.h"

#include "probes/ShellQuote.h"
#include "workers/PreviewState.h"

#include <QFile>

#import <AppKit/AppKit.h>
#import <Quartz/Quartz.h>

#include <cstdlib>

// Panel methods of the older private Quick Look interface, which the headers do not declare.
@interface NSObject (CorvaneQuickLookPrivate)
- (void)setURLs:(id)urls currentIndex:(NSUInteger)index preservingDisplayState:(BOOL)preserve;
- (void)setURLs:(id)urls;
- (id)windowController;
- (void)closeWithEffect:(int)effect;
- (BOOL)isOpen;
@end

@interface MyApplication : NSApplication {
    BOOL shouldKeepRunning;
}
@end

@interface TestAppDelegate
    : NSObject <NSApplicationDelegate, QLPreviewPanelDataSource, QLPreviewPanelDelegate> {
    NSWindow *window;
    QLPreviewPanel *previewPanel;
    NSArray *panelData;
}
@property(assign) IBOutlet NSWindow *window;
@property(retain) NSArray *panelData;
- (void)Quick;
- (IBAction)togglePreviewPanel:(id)sender;
- (void)RemoveTemp;
@end

namespace
{

NSString *ToNSString(const QString &text)
{
    return [NSString stringWithUTF8String:text.toUtf8().constData()];
}

NSURL *FileURL(const QString &path)
{
    return [NSURL fileURLWithPath:ToNSString(path)];
}

} // namespace

void RemoveTemp()
{
    bQuickLookClose = true;
    const QByteArray command = QFile::encodeName("rm " + ShellQuote(strFileForPreview));
    std::system(command.constData());
}

void CallSelectedItems(QString path)
{
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    [pool release];

    Class panelClass = NSClassFromString(@"QLPreviewPanel");
    id panel = [(id)panelClass sharedPreviewPanel];
    if ([panel respondsToSelector:@selector(isOpen)] && [panel isOpen] && [panel isVisible]) {
        if ([panel respondsToSelector:@selector(closeWithEffect:)])
            [panel closeWithEffect:2];
        else
            [panel orderOut:nil];
        return;
    }

    NSString *file = ToNSString(path);
    [[NSBundle bundleWithPath:@"/System/Library/PrivateFrameworks/QuickLookUI.framework"] load];
    // Older systems' private interface: each step only where the panel still answers it.
    if ([panel respondsToSelector:@selector(setURLs:currentIndex:preservingDisplayState:)])
        [panel setURLs:file currentIndex:0 preservingDisplayState:YES];
    if ([panel respondsToSelector:@selector(windowController)])
        [[panel windowController] setDelegate:nil];
    if ([panel respondsToSelector:@selector(setURLs:)])
        [panel setURLs:[NSArray arrayWithObject:FileURL(path)]];
    [panel makeKeyAndOrderFront:nil];

    // The panel holds the file now.
    std::system(QFile::encodeName("rm " + ShellQuote(path)).constData());
}

int MyApplicationMain()
{
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];

    NSDictionary *info = [[NSBundle mainBundle] infoDictionary];
    Class principalClass = NSClassFromString([info objectForKey:@"NSPrincipalClass"]);
    NSApplication *application = [principalClass sharedApplication];
    NSString *nibName = [info objectForKey:@"NSMainNibFile"];

    NSNib *nib = [[NSNib alloc] initWithNibNamed:nibName bundle:[NSBundle mainBundle]];
    [nib instantiateWithOwner:application topLevelObjects:nil];

    if ([application respondsToSelector:@selector(run)]) {
        [application performSelectorOnMainThread:@selector(run) withObject:nil waitUntilDone:YES];
    } else {
        [[NSNotificationCenter defaultCenter] postNotificationName:NSApplicationDidFinishLaunchingNotification
                                                            object:application];
    }

    [nib release];
    [pool release];
    return 0;
}

int SetWindowLevel(int, int, char **)
{
    return MyApplicationMain();
}

@implementation MyApplication

- (void)run
{
    [[NSNotificationCenter defaultCenter] postNotificationName:NSApplicationWillFinishLaunchingNotification
                                                        object:NSApp];
    [[NSNotificationCenter defaultCenter] postNotificationName:NSApplicationDidFinishLaunchingNotification
                                                        object:NSApp];
    shouldKeepRunning = YES;
    do {
        NSEvent *event = [self nextEventMatchingMask:NSUIntegerMax
                                           untilDate:[NSDate distantFuture]
                                              inMode:NSDefaultRunLoopMode
                                             dequeue:YES];
        [self sendEvent:event];
        [self updateWindows];
    } while (shouldKeepRunning);
}

// Ends the loop above after the event being handled; the process itself goes on.
- (void)terminate:(id)sender
{
    (void)sender;
    shouldKeepRunning = NO;
}

@end

@implementation TestAppDelegate

@synthesize window;
@synthesize panelData;

- (void)awakeFromNib
{
    [window setAlphaValue:0.0];
}

- (void)applicationDidFinishLaunching:(NSNotification *)notification
{
    (void)notification;
    [self Quick];
}

- (void)Quick
{
    [self setPanelData:[NSArray arrayWithObject:FileURL(strFileForPreview)]];
    [self togglePreviewPanel:self];
}

- (IBAction)togglePreviewPanel:(id)sender
{
    (void)sender;
    if ([QLPreviewPanel sharedPreviewPanelExists] && [[QLPreviewPanel sharedPreviewPanel] isVisible]) {
        [[QLPreviewPanel sharedPreviewPanel] orderOut:nil];
        [self RemoveTemp];
    } else {
        [[QLPreviewPanel sharedPreviewPanel] makeKeyAndOrderFront:nil];
        [self RemoveTemp];
    }
}

- (BOOL)acceptsPreviewPanelControl:(QLPreviewPanel *)panel
{
    (void)panel;
    return YES;
}

- (void)beginPreviewPanelControl:(QLPreviewPanel *)panel
{
    previewPanel = [panel retain];
    [panel setDelegate:self];
    [panel setDataSource:self];
}

- (void)endPreviewPanelControl:(QLPreviewPanel *)panel
{
    (void)panel;
    [self RemoveTemp];
    [previewPanel release];
    previewPanel = nil;
    [self RemoveTemp];
}

- (NSInteger)numberOfPreviewItemsInPreviewPanel:(QLPreviewPanel *)panel
{
    (void)panel;
    return NSInteger([panelData count]);
}

- (id<QLPreviewItem>)previewPanel:(QLPreviewPanel *)panel previewItemAtIndex:(NSInteger)index
{
    (void)panel;
    return [panelData objectAtIndex:NSUInteger(index)];
}

- (void)RemoveTemp
{
    ::RemoveTemp();
}

- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(NSApplication *)sender
{
    (void)sender;
    return YES;
}

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication *)sender
{
    (void)sender;
    return NSTerminateNow;
}

- (void)dealloc
{
    [previewPanel release];
    [panelData release];
    [super dealloc];
}

@end
