// Vulkan's functions, looked up at run time so that the library also loads without Vulkan.
#pragma once

#define VK_NO_PROTOTYPES
#include <vulkan/vulkan.h>
#include <xcb/xcb.h>
// The declarations for XCB come after XCB's own.
#include <vulkan/vulkan_xcb.h>

namespace zeph::vulkan {

#define ZEPH_INSTANCE_FUNCTIONS(USE)        \
  USE(vkCreateDevice)                       \
  USE(vkDestroyInstance)                    \
  USE(vkEnumerateDeviceExtensionProperties) \
  USE(vkEnumeratePhysicalDevices)           \
  USE(vkGetDeviceProcAddr)                  \
  USE(vkGetPhysicalDeviceFeatures2)         \
  USE(vkGetPhysicalDeviceMemoryProperties)  \
  USE(vkGetPhysicalDeviceProperties2)       \
  USE(vkGetPhysicalDeviceQueueFamilyProperties)

// For a surface; null if there is no window.
#define ZEPH_SURFACE_FUNCTIONS(USE)              \
  USE(vkCreateXcbSurfaceKHR)                     \
  USE(vkDestroySurfaceKHR)                       \
  USE(vkGetPhysicalDeviceSurfaceCapabilitiesKHR) \
  USE(vkGetPhysicalDeviceSurfaceFormatsKHR)      \
  USE(vkGetPhysicalDeviceSurfaceSupportKHR)

#define ZEPH_DEVICE_FUNCTIONS(USE)   \
  USE(vkAllocateCommandBuffers)      \
  USE(vkAllocateDescriptorSets)      \
  USE(vkAllocateMemory)              \
  USE(vkBeginCommandBuffer)          \
  USE(vkBindBufferMemory)            \
  USE(vkBindImageMemory)             \
  USE(vkCmdBeginRenderPass)          \
  USE(vkCmdBindDescriptorSets)       \
  USE(vkCmdBindPipeline)             \
  USE(vkCmdClearAttachments)         \
  USE(vkCmdCopyImageToBuffer)        \
  USE(vkCmdDraw)                     \
  USE(vkCmdEndRenderPass)            \
  USE(vkCmdPipelineBarrier)          \
  USE(vkCmdSetScissor)               \
  USE(vkCmdSetViewport)              \
  USE(vkCmdUpdateBuffer)             \
  USE(vkCreateBuffer)                \
  USE(vkCreateCommandPool)           \
  USE(vkCreateDescriptorPool)        \
  USE(vkCreateDescriptorSetLayout)   \
  USE(vkCreateFence)                 \
  USE(vkCreateFramebuffer)           \
  USE(vkCreateGraphicsPipelines)     \
  USE(vkCreateImage)                 \
  USE(vkCreateImageView)             \
  USE(vkCreatePipelineLayout)        \
  USE(vkCreateRenderPass)            \
  USE(vkCreateSemaphore)             \
  USE(vkCreateShaderModule)          \
  USE(vkDestroyBuffer)               \
  USE(vkDestroyCommandPool)          \
  USE(vkDestroyDescriptorPool)       \
  USE(vkDestroyDescriptorSetLayout)  \
  USE(vkDestroyDevice)               \
  USE(vkDestroyFence)                \
  USE(vkDestroyFramebuffer)          \
  USE(vkDestroyImage)                \
  USE(vkDestroyImageView)            \
  USE(vkDestroyPipeline)             \
  USE(vkDestroyPipelineLayout)       \
  USE(vkDestroyRenderPass)           \
  USE(vkDestroySemaphore)            \
  USE(vkDestroyShaderModule)         \
  USE(vkDeviceWaitIdle)              \
  USE(vkEndCommandBuffer)            \
  USE(vkFreeMemory)                  \
  USE(vkGetBufferMemoryRequirements) \
  USE(vkGetDeviceQueue)              \
  USE(vkGetImageMemoryRequirements)  \
  USE(vkMapMemory)                   \
  USE(vkQueueSubmit)                 \
  USE(vkResetFences)                 \
  USE(vkUpdateDescriptorSets)        \
  USE(vkWaitForFences)

#define ZEPH_SWAP_CHAIN_FUNCTIONS(USE) \
  USE(vkAcquireNextImageKHR)           \
  USE(vkCreateSwapchainKHR)            \
  USE(vkDestroySwapchainKHR)           \
  USE(vkGetSwapchainImagesKHR)         \
  USE(vkQueuePresentKHR)

#define ZEPH_MEMBER(name) PFN_##name name = nullptr;

// Those that need no instance. All are null if Vulkan 1.1 is missing.
struct GlobalFunctions {
  ZEPH_MEMBER(vkGetInstanceProcAddr)
  ZEPH_MEMBER(vkCreateInstance)
  ZEPH_MEMBER(vkEnumerateInstanceExtensionProperties)
};
GlobalFunctions globalFunctions();

struct InstanceFunctions {
  ZEPH_INSTANCE_FUNCTIONS(ZEPH_MEMBER)
  ZEPH_SURFACE_FUNCTIONS(ZEPH_MEMBER)
};
InstanceFunctions instanceFunctions(const GlobalFunctions& global, VkInstance instance);

struct DeviceFunctions {
  ZEPH_DEVICE_FUNCTIONS(ZEPH_MEMBER)
  ZEPH_SWAP_CHAIN_FUNCTIONS(ZEPH_MEMBER)
  PFN_vkGetMemoryFdKHR vkGetMemoryFdKHR = nullptr;  // null if memory cannot be exported
  PFN_vkWaitForPresentKHR vkWaitForPresentKHR = nullptr;
};
DeviceFunctions deviceFunctions(const InstanceFunctions& instance, VkDevice device);

#undef ZEPH_MEMBER

}  // namespace zeph::vulkan
