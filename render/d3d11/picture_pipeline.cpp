#include "render/d3d11/picture_pipeline.h"

#include "render/shader_resources.h"

namespace zeph::d3d11 {
namespace {

constexpr UINT everySample = 0xffffffff;

ComPtr<ID3D11VertexShader> vertexShader(ID3D11Device& device, ShaderResource resource,
                                        const char* step) {
  const auto code = shaderResource(resource);
  ComPtr<ID3D11VertexShader> shader;
  check(device.CreateVertexShader(code.data(), code.size(), nullptr, &shader), step);
  return shader;
}

ComPtr<ID3D11PixelShader> pixelShader(ID3D11Device& device, ShaderResource resource,
                                      const char* step) {
  const auto code = shaderResource(resource);
  ComPtr<ID3D11PixelShader> shader;
  check(device.CreatePixelShader(code.data(), code.size(), nullptr, &shader), step);
  return shader;
}

ComPtr<ID3D11Buffer> makeUniforms(ID3D11Device& device) {
  const D3D11_BUFFER_DESC description = {.ByteWidth = sizeof(Uniforms),
                                         .Usage = D3D11_USAGE_DEFAULT,
                                         .BindFlags = D3D11_BIND_CONSTANT_BUFFER,
                                         .CPUAccessFlags = 0,
                                         .MiscFlags = 0,
                                         .StructureByteStride = 0};
  ComPtr<ID3D11Buffer> buffer;
  check(device.CreateBuffer(&description, nullptr, &buffer), "Create field uniforms");
  return buffer;
}

ComPtr<ID3D11RasterizerState> makeRasterState(ID3D11Device& device) {
  const D3D11_RASTERIZER_DESC description = {.FillMode = D3D11_FILL_SOLID,
                                             .CullMode = D3D11_CULL_NONE,
                                             .FrontCounterClockwise = FALSE,
                                             .DepthBias = 0,
                                             .DepthBiasClamp = 0,
                                             .SlopeScaledDepthBias = 0,
                                             .DepthClipEnable = TRUE,
                                             .ScissorEnable = FALSE,
                                             .MultisampleEnable = FALSE,
                                             .AntialiasedLineEnable = TRUE};
  ComPtr<ID3D11RasterizerState> state;
  check(device.CreateRasterizerState(&description, &state), "Create raster state");
  return state;
}

ComPtr<ID3D11BlendState> makeFlowBlend(ID3D11Device& device) {
  D3D11_BLEND_DESC description = {};
  description.RenderTarget[0] = {.BlendEnable = TRUE,
                                 .SrcBlend = D3D11_BLEND_SRC_ALPHA,
                                 .DestBlend = D3D11_BLEND_INV_SRC_ALPHA,
                                 .BlendOp = D3D11_BLEND_OP_ADD,
                                 .SrcBlendAlpha = D3D11_BLEND_ONE,
                                 .DestBlendAlpha = D3D11_BLEND_INV_SRC_ALPHA,
                                 .BlendOpAlpha = D3D11_BLEND_OP_ADD,
                                 .RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_ALL};
  ComPtr<ID3D11BlendState> state;
  check(device.CreateBlendState(&description, &state), "Create flow blend state");
  return state;
}

}  // namespace

PicturePipeline::PicturePipeline(const GraphicsDevice& device) : device_(device) {
  ID3D11Device& on = *device.device().Get();
  fieldVertexShader_ = vertexShader(on, ShaderResource::fieldVertex, "Field vertex shader");
  fieldPixelShader_ = pixelShader(on, ShaderResource::fieldPixel, "Field pixel shader");
  flowVertexShader_ = vertexShader(on, ShaderResource::flowVertex, "Flow vertex shader");
  flowPixelShader_ = pixelShader(on, ShaderResource::flowPixel, "Flow pixel shader");
  uniforms_ = makeUniforms(on);
  rasterState_ = makeRasterState(on);
  flowBlend_ = makeFlowBlend(on);
}

void PicturePipeline::draw(ID3D11RenderTargetView* target, const FieldBuffer& field,
                           const Uniforms& uniforms, const PicturePlace& place,
                           bool hasFlowLines) const {
  ID3D11DeviceContext& context = device_.context();
  context.UpdateSubresource(uniforms_.Get(), 0, nullptr, &uniforms, 0, 0);
  const D3D11_VIEWPORT viewport = {.TopLeftX = place.x,
                                   .TopLeftY = place.y,
                                   .Width = place.size,
                                   .Height = place.size,
                                   .MinDepth = 0,
                                   .MaxDepth = 1};
  context.RSSetViewports(1, &viewport);
  bind(target, field);
  context.Draw(fieldVertices, 0);
  if (hasFlowLines) {
    context.OMSetBlendState(flowBlend_.Get(), nullptr, everySample);
    context.IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_LINELIST);
    context.VSSetShader(flowVertexShader_.Get(), nullptr, 0);
    context.PSSetShader(flowPixelShader_.Get(), nullptr, 0);
    context.Draw(flowVertices, 0);
  }
  unbind();
}

void PicturePipeline::bind(ID3D11RenderTargetView* target, const FieldBuffer& field) const {
  ID3D11DeviceContext& context = device_.context();
  context.RSSetState(rasterState_.Get());
  context.OMSetRenderTargets(1, &target, nullptr);
  context.OMSetDepthStencilState(nullptr, 0);
  context.OMSetBlendState(nullptr, nullptr, everySample);
  context.IASetInputLayout(nullptr);
  context.IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
  context.VSSetShader(fieldVertexShader_.Get(), nullptr, 0);
  context.PSSetShader(fieldPixelShader_.Get(), nullptr, 0);
  context.VSSetConstantBuffers(0, 1, uniforms_.GetAddressOf());
  context.PSSetConstantBuffers(0, 1, uniforms_.GetAddressOf());
  ID3D11ShaderResourceView* view = field.view();
  context.VSSetShaderResources(0, 1, &view);
  context.PSSetShaderResources(0, 1, &view);
}

// The field is written next by CUDA, and the target by Direct2D.
void PicturePipeline::unbind() const {
  ID3D11ShaderResourceView* none = nullptr;
  ID3D11DeviceContext& context = device_.context();
  context.VSSetShaderResources(0, 1, &none);
  context.PSSetShaderResources(0, 1, &none);
  context.OMSetRenderTargets(0, nullptr, nullptr);
}

}  // namespace zeph::d3d11
