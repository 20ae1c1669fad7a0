// Reports the active tab's host to Quillet's native-messaging host whenever it may have
// changed: another tab, another address, another window in front. Quillet only ever learns the
// host name, never the address or the page.
"use strict";

const hostName = "com.quillet.site";
let port = null;
let lastSent = null;

function connect() {
  try {
    port = chrome.runtime.connectNative(hostName);
  } catch (error) {
    port = null;
    return;
  }
  // The host ends when Quillet is updated or the message was refused: the next report starts
  // a new one, and the last host is sent again there.
  port.onDisconnect.addListener(() => {
    port = null;
    lastSent = null;
  });
}

function hostOf(url) {
  try {
    const address = new URL(url);
    return address.protocol === "http:" || address.protocol === "https:" ? address.hostname : "";
  } catch (error) {
    return "";
  }
}

async function report() {
  let tabs;
  try {
    tabs = await chrome.tabs.query({ active: true, lastFocusedWindow: true });
  } catch (error) {
    return;
  }
  const host = tabs.length > 0 && tabs[0].url ? hostOf(tabs[0].url) : "";
  if (port === null) {
    connect();
  }
  if (port === null || host === lastSent) {
    return;
  }
  try {
    port.postMessage({ host });
    lastSent = host;
  } catch (error) {
    port = null;
    lastSent = null;
  }
}

chrome.tabs.onActivated.addListener(report);
chrome.tabs.onUpdated.addListener((tabId, change, tab) => {
  if (tab.active && (change.url !== undefined || change.status === "complete")) {
    report();
  }
});
chrome.windows.onFocusChanged.addListener((windowId) => {
  if (windowId !== chrome.windows.WINDOW_ID_NONE) {
    lastSent = null; // another browser may have reported since: this one's site counts again
    report();
  }
});
chrome.runtime.onStartup.addListener(report);
chrome.runtime.onInstalled.addListener(report);
report();
